#!/usr/bin/env python3
"""The live window on a screen of its own (Xvfb): what it shows, compared with what render makes, and
what keys, mouse and changed files do.

usage: window_test.py SHADERMACHINE [FOLDER]    screenshots of failures go to the folder
"""
import os
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import zlib

SKIPPED = 77
try:
    from Xlib import X, XK
    from Xlib.display import Display
    from Xlib.ext import xtest
except ImportError:
    print("skipped: python3-xlib is not installed")
    sys.exit(SKIPPED)
if shutil.which("Xvfb") is None:
    print("skipped: Xvfb is not installed")
    sys.exit(SKIPPED)

PATIENCE = 120  # seconds until something must have happened
WIDTH, HEIGHT = 160, 90


class Screen:
    def __init__(self):
        reader, writer = os.pipe()
        self.server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(writer), "-screen", "0", "900x700x24", "-nolisten", "tcp"],
            pass_fds=[writer], stderr=subprocess.DEVNULL)
        os.close(writer)
        with os.fdopen(reader) as number:
            self.name = ":" + number.readline().strip()
        self.display = Display(self.name)
        # A key that is held while nobody gets to run must not repeat.
        self.display.change_keyboard_control(auto_repeat_mode=X.AutoRepeatModeOff)

    def close(self):
        self.display.close()
        self.server.terminate()
        self.server.wait()


def wait_for(what, condition):
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end:
        value = condition()
        if value:
            return value
        time.sleep(0.02)
    raise AssertionError("never happened: " + what)


def save_png(path, size, pixels):
    """`pixels` are rows of red, green, blue."""
    def chunk(kind, data):
        return (struct.pack(">I", len(data)) + kind + data +
                struct.pack(">I", zlib.crc32(kind + data)))
    width, height = size
    rows = b"".join(b"\0" + pixels[y * width * 3:(y + 1) * width * 3] for y in range(height))
    with open(path, "wb") as file:
        file.write(b"\x89PNG\r\n\x1a\n" +
                   chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)) +
                   chunk(b"IDAT", zlib.compress(rows)) + chunk(b"IEND", b""))


class View:
    """A running program and its window."""

    def __init__(self, screen, program, folder, shader, *options, terminal=None):
        self.screen = screen
        self.folder = folder
        # What the libraries of the screen keep is none of the program's.
        environment = dict(os.environ, DISPLAY=screen.name, SDL_VIDEODRIVER="x11",
                           ASAN_OPTIONS="detect_leaks=0")
        size = [] if "--size" in options else ["--size", f"{WIDTH}x{HEIGHT}"]
        self.log = open(os.path.join(folder, "log"), "w+")
        self.process = subprocess.Popen([program, "view", shader, *size, *options], cwd=folder,
                                        env=environment, stdin=terminal, stdout=self.log,
                                        stderr=self.log)
        root = screen.display.screen().root
        self.window = wait_for("a window", lambda: self.mapped(root))
        self.window.set_input_focus(X.RevertToParent, X.CurrentTime)
        screen.display.sync()

    def mapped(self, root):
        if self.process.poll() is not None:
            raise AssertionError("the program ended: " + self.output())
        for child in root.query_tree().children:
            attributes = child.get_attributes()
            if attributes.map_state == X.IsViewable and child.get_geometry().width > 20:
                return child
        return None

    def output(self):
        with open(self.log.name) as file:
            return file.read()

    def size(self):
        geometry = self.window.get_geometry()
        return geometry.width, geometry.height

    def pixels(self):
        width, height = self.size()
        data = self.window.get_image(0, 0, width, height, X.ZPixmap, 0xFFFFFFFF).data
        rgb = bytearray(width * height * 3)
        rgb[0::3], rgb[1::3], rgb[2::3] = data[2::4], data[1::4], data[0::4]
        return bytes(rgb)

    def pixel(self, x, y):
        place = (y * self.size()[0] + x) * 3
        return tuple(self.pixels()[place:place + 3])

    def shows(self, x, y, colour):
        wait_for(f"{colour} at {x}, {y}", lambda: self.pixel(x, y) == colour)

    def key(self, name, control=False):
        display = self.screen.display
        codes = [display.keysym_to_keycode(XK.string_to_keysym(name))]
        if control:
            codes.insert(0, display.keysym_to_keycode(XK.XK_Control_L))
        for code in codes:
            xtest.fake_input(display, X.KeyPress, code)
        display.sync()
        time.sleep(0.05)
        for code in reversed(codes):
            xtest.fake_input(display, X.KeyRelease, code)
        display.sync()
        time.sleep(0.05)  # or the next press looks like a repetition

    def move(self, x, y):
        place = self.window.translate_coords(self.screen.display.screen().root, 0, 0)
        xtest.fake_input(self.screen.display, X.MotionNotify, x=x - place.x, y=y - place.y)
        self.screen.display.sync()

    def button(self, number, press=True, release=True):
        if press:
            xtest.fake_input(self.screen.display, X.ButtonPress, number)
        self.screen.display.sync()
        if release:
            xtest.fake_input(self.screen.display, X.ButtonRelease, number)
        self.screen.display.sync()

    def says(self, text):
        wait_for(f"'{text}' on the terminal", lambda: text in self.output())

    def quit(self):
        self.key("q")
        wait_for("the end", lambda: self.process.poll() is not None)
        assert self.process.returncode == 0, self.process.returncode

    def kill(self):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        self.log.close()


def write(folder, name, text):
    path = os.path.join(folder, name)
    with open(path + ".new", "w") as file:
        file.write(text)
    os.replace(path + ".new", path)


def plain(colour):
    return "void main() { gl_FragColor = vec4(" + colour + ", 1.0); }\n"


CROSS = """uniform vec2 u_resolution;
void main() {
  vec2 uv = gl_FragCoord.xy / u_resolution;
  gl_FragColor = vec4(uv, step(0.5, fract(uv.x * 4.0)), 1.0);
}
"""


def picture_is_that_of_render(test):
    write(test.folder, "cross.frag", CROSS)
    view = test.open("cross.frag")
    out = subprocess.run([test.program, "render", "cross.frag", "--size", f"{WIDTH}x{HEIGHT}", "-o",
                          "-", "--format", "ppm"], cwd=test.folder, check=True, capture_output=True)
    expected = out.stdout[-3 * WIDTH * HEIGHT:]
    wait_for("the picture of render", lambda: view.pixels() == expected)
    # Zoomed four times around the middle, a pixel is a square.
    view.move(80, 45)
    view.button(4)
    view.button(4)
    place = (45 * WIDTH + 80) * 3
    wait_for("a zoomed pixel",
             lambda: all(view.pixel(80 + i, 45 + j) == tuple(expected[place:place + 3])
                         for i in (0, 3) for j in (0, 3)))
    view.key("0")
    wait_for("the picture again", lambda: view.pixels() == expected)
    view.key("s")
    view.says("saved cross-shot-1.png")
    assert os.path.exists(os.path.join(test.folder, "cross-shot-1.png"))
    view.quit()


def changed_files_are_seen(test):
    write(test.folder, "colour.glsl", "#define COLOUR vec3(0.0, 1.0, 0.0)\n")
    write(test.folder, "reload.frag", '#include "colour.glsl"\n' + plain("COLOUR"))
    view = test.open("reload.frag")
    view.shows(150, 80, (0, 255, 0))
    write(test.folder, "colour.glsl", "#define COLOUR vec3(0.0, 0.0, 1.0)\n")
    view.shows(150, 80, (0, 0, 255))
    write(test.folder, "reload.frag", plain("nothing"))
    view.says("reload.frag:1:")
    # The last good picture stays, with the error over its top.
    wait_for("the error", lambda: (255, 150, 130) in
             {view.pixel(x, y) for x in range(4, 60) for y in range(4, 17)})
    view.shows(150, 80, (0, 0, 255))
    write(test.folder, "reload.frag", plain("vec3(1.0, 0.0, 0.0)"))
    view.shows(5, 5, (255, 0, 0))
    view.quit()


def time_runs(test):
    write(test.folder, "time.frag", "uniform int iFrame;\n" + plain(
        "0.0, float(iFrame & 255) / 255.0, 1.0"))
    view = test.open("time.frag")
    wait_for("a frame", lambda: view.pixel(80, 5)[2] == 255)
    first = view.pixel(80, 5)
    wait_for("another frame", lambda: view.pixel(80, 5) != first)
    view.quit()


def mouse_and_picked_pixels(test):
    write(test.folder, "mouse.frag", "void mainImage(out vec4 c, in vec2 p) {\n"
          "  c = vec4(iMouse.xy / 255.0, iMouse.z > 0.0 ? 1.0 : 0.2, 1.0);\n}\n")
    view = test.open("mouse.frag")
    view.shows(80, 5, (0, 0, 51))
    view.move(100, 30)
    view.button(1, release=False)
    view.shows(80, 5, (100, 60, 255))
    view.move(120, 40)
    view.shows(80, 5, (120, 50, 255))
    view.button(1, press=False)
    view.shows(80, 5, (120, 50, 51))
    view.button(3)
    view.says("pixel (120, 40): 0.470588 0.196078 0.2 1  #783233")
    view.says("shadermachine debug mouse.frag --size 160x90 --time")
    view.key("t")
    view.says("2    c = vec4(iMouse.xy / 255.0, iMouse.z > 0.0 ? 1.0 : 0.2, 1.0);")
    command = [line.strip() for line in view.output().splitlines() if "debug mouse" in line][-1]
    run = [test.program] + command.split()[1:]
    run[1] = "run"
    answer = subprocess.run(run, cwd=test.folder, check=True, capture_output=True, text=True)
    assert "colour: 0.470588" in answer.stdout, answer.stdout
    view.key("d")
    view.says("the debugger needs a terminal")
    view.quit()


def picked_pixels_are_debugged(test):
    write(test.folder, "wrong.frag", plain("gl_FragCoord.x / 160.0, 0.0, 0.5"))
    terminal, slave = os.openpty()
    view = test.open("wrong.frag", terminal=slave)
    os.close(slave)
    view.shows(120, 5, (192, 0, 128))
    view.move(120, 40)
    view.button(3)
    view.says("pixel (120, 40)")
    view.key("d")
    os.write(terminal, b"print gl_FragCoord.x\nquit\n")
    view.says("gl_FragCoord.x = 120.5")
    view.quit()
    os.close(terminal)


def keyboard_and_buffers(test):
    write(test.folder, "keys.frag", '#iChannel0 "keys.state.frag"\n'
          "void mainImage(out vec4 c, in vec2 p) {\n"
          "  c = vec4(texelFetch(iChannel0, ivec2(p), 0).xw, 1.0, 1.0);\n}\n")
    # Counts how often A was pressed, and shows whether B is held.
    write(test.folder, "keys.state.frag", '#iChannel0 "self"\n#iChannel1 "keyboard"\n'
          "void mainImage(out vec4 c, in vec2 p) {\n"
          "  c = texelFetch(iChannel0, ivec2(p), 0);\n"
          "  c.r += texelFetch(iChannel1, ivec2(65, 1), 0).x * 0.2;\n"
          "  c.a = texelFetch(iChannel1, ivec2(66, 0), 0).x;\n}\n")
    view = test.open("keys.frag")
    view.shows(80, 80, (0, 0, 255))
    for count in range(1, 4):
        view.key("a")
        view.shows(80, 80, (51 * count, 0, 255))
    code = test.screen.display.keysym_to_keycode(XK.XK_b)
    xtest.fake_input(test.screen.display, X.KeyPress, code)
    view.shows(80, 80, (153, 255, 255))
    xtest.fake_input(test.screen.display, X.KeyRelease, code)
    view.shows(80, 80, (153, 0, 255))
    view.key("q", control=True)
    wait_for("the end", lambda: view.process.poll() is not None)


def resized_and_recorded(test):
    write(test.folder, "cross.frag", CROSS)
    view = test.open("cross.frag", "--fps")
    view.window.configure(width=200, height=120)
    wait_for("the larger picture", lambda: view.size() == (200, 120) and
             view.pixel(199, 0) == (254, 254, 255))
    view.key("r")
    wait_for("frames", lambda: os.path.exists(os.path.join(test.folder, "cross-0002.png")))
    view.key("r")
    view.says("frames recorded")
    view.quit()


def heavy_shaders_are_coarse_first(test):
    # A millisecond and more per pixel make many seconds of a whole picture.
    write(test.folder, "heavy.frag", "uniform float u_time;\nvoid main() {\n  float x = u_time;\n"
          "  for (int i = 0; i < 30000; ++i) x = sin(x);\n"
          "  gl_FragColor = vec4(gl_FragCoord.xy / 200.0, step(2.0, x), 1.0);\n}\n")
    view = test.open("heavy.frag")
    wait_for("something to see", lambda: view.pixel(80, 80) != (0, 0, 0))
    view.quit()


class Test:
    def __init__(self, screen, program, folder):
        self.screen, self.program, self.folder = screen, program, folder
        self.views = []

    def open(self, shader, *options, terminal=None):
        self.views.append(View(self.screen, self.program, self.folder, shader, *options,
                               terminal=terminal))
        return self.views[-1]


CASES = [picture_is_that_of_render, changed_files_are_seen, time_runs,
         mouse_and_picked_pixels, picked_pixels_are_debugged, keyboard_and_buffers, resized_and_recorded,
         heavy_shaders_are_coarse_first]


def run_case(case, screen, program, failures):
    with tempfile.TemporaryDirectory() as folder:
        test = Test(screen, program, folder)
        try:
            case(test)
            print("passed:", case.__name__)
            return True
        except (AssertionError, OSError, subprocess.CalledProcessError) as error:
            print("FAILED:", case.__name__, error)
            for view in test.views:
                print(view.output())
                if view.process.poll() is None and failures:
                    save_png(os.path.join(failures, case.__name__ + ".png"), view.size(),
                             view.pixels())
            return False
        finally:
            for view in test.views:
                view.kill()


def main():
    program = os.path.abspath(sys.argv[1])
    failures = sys.argv[2] if len(sys.argv) > 2 else None
    version = subprocess.run([program, "--version"], capture_output=True, text=True, check=True)
    if "with the live window" not in version.stdout or "with the GLSL" not in version.stdout:
        print("skipped: the program was built without SDL2 or the GLSL compiler")
        return SKIPPED
    screen = Screen()
    try:
        results = [run_case(case, screen, program, failures) for case in CASES]
    finally:
        screen.close()
    return 0 if all(results) else 1


if __name__ == "__main__":
    sys.exit(main())
