#!/usr/bin/env python3
"""Renders the gallery for the documents: docs/images/gallery/ and docs/gallery.md.

  scripts/make_gallery.py [PROGRAM]     the program `shadermachine`, of build/release unless said

Needs ffmpeg. Times are processor time per fragment on this machine, at one sample per pixel; run it
when nothing else runs.
"""
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
PICTURES = ROOT / "docs/images/gallery"
SIZE = "1280x720"
ANIMATED = "examples/gallery/glsl/spheres.frag"

# Shaders that begin from nothing: the last of these frames is shown.
FRAMES = {"ripples": "0:150"}

# What an instruction or a line of a listing says of the shader.
FEATURES = {
    r"NOISE\d": "noise",
    r"HOST_LOOKUP": "textures",
    r"HOST_UNARY": "derivatives",
    r"DISCARD": "discarding",
    r"LOAD_BUILTIN 28[04]": "built-in variables",
    r"\.output1": "depth",
    r"\.struct": "structures",
    r"ARRAY_ELEMENT": "arrays",
    r"MUL_(MAT|VEC)_": "matrices",
    r"REFLECT": "reflection",
    r"REFRACT": "refraction",
    r"BIT_": "bits",
    r"CALL ": "functions",
}


def run(*command):
    done = subprocess.run(command, cwd=ROOT, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"{' '.join(command)}\n{done.stderr}")
    return done.stdout + done.stderr


def has_loop(listing):
    labels = set()
    for line in listing.splitlines():
        if line.endswith(":"):
            labels.add(line[:-1])
        jump = re.match(r" +JUMP\w* (\w+)", line)
        if jump and jump[1] in labels:
            return True
        if line.startswith(".function"):
            labels.clear()
    return False


def features(program, source):
    text = (ROOT / source).read_text()
    if source.endswith(".frag"):
        with tempfile.TemporaryDirectory() as folder:
            listing = pathlib.Path(folder) / "listing.sasm"
            run(program, "glsl", source, "-o", str(listing))
            text = listing.read_text()
    found = [name for pattern, name in FEATURES.items() if re.search(pattern, text)]
    return found + (["loops"] if has_loop(text) else [])


def description(text):
    """The first paragraph of the comment at the top, without options for rendering."""
    lines = []
    for line in text.splitlines():
        comment = re.match(r"(?:;|//) (.*)", line)
        if comment and not comment[1].startswith("render: "):
            lines.append(comment[1])
        elif lines:
            break
    return " ".join(lines)


def to_jpeg(picture, target):
    run("ffmpeg", "-y", "-loglevel", "error", "-f", "lavfi", "-i", f"color=black:s={SIZE}",
        "-i", picture, "-filter_complex", "overlay=format=auto", "-frames:v", "1", "-q:v", "4",
        str(target))


def render(program, source, options):
    name = pathlib.Path(source).stem
    with tempfile.TemporaryDirectory() as folder:
        picture = f"{folder}/{name}.png"
        stats = run(program, "render", source, "-o", picture, "--size", SIZE, "--stats", *options)
        pathlib.Path(picture).unlink()
        if name in FRAMES:
            options = [*options, "--frames", FRAMES[name]]
        run(program, "render", source, "-o", picture, "--size", SIZE, "--samples", "4", *options)
        to_jpeg(str(max(pathlib.Path(folder).glob("*.png"))), PICTURES / f"{name}.jpg")
    return re.search(r"(\d+) ns per fragment", stats)[1]


def section(program, source):
    name = pathlib.Path(source).stem
    text = (ROOT / source).read_text()
    options = re.search(r"render: (.*)", text)
    time = render(program, source, options[1].split() if options else [])
    facts = [f"[{source}](../{source}), {len(text.splitlines())} lines", f"{time} ns per fragment",
             ", ".join(features(program, source))]
    print(name, facts[1:])
    return (f"## {name}\n\n[![{name}](images/gallery/{name}.jpg)](../{source})\n\n"
            f"{description(text)}\n\n{' · '.join(facts)}\n")


def animate(program):
    with tempfile.TemporaryDirectory() as folder:
        film = f"{folder}/film.raw"
        run(program, "render", ANIMATED, "-o", film, "--size", "480x270", "--samples", "4",
            "--frames", "0:59")
        frames = b"".join(path.read_bytes() for path in sorted(pathlib.Path(folder).glob("*.raw")))
        (pathlib.Path(folder) / "all").write_bytes(frames)
        run("ffmpeg", "-y", "-loglevel", "error", "-f", "rawvideo", "-pix_fmt", "rgba", "-s",
            "480x270", "-r", "30", "-i", f"{folder}/all", "-r", "15", "-loop", "0", "-q:v", "60",
            str(PICTURES / f"{pathlib.Path(ANIMATED).stem}.webp"))


def main():
    program = sys.argv[1] if len(sys.argv) > 1 else str(ROOT / "build/release/tools/shadermachine")
    PICTURES.mkdir(parents=True, exist_ok=True)
    sources = [str(path.relative_to(ROOT)) for folder, pattern in
               (("examples/gallery/glsl", "*.frag"), ("examples/gallery", "*.sasm"))
               for path in sorted((ROOT / folder).glob(pattern))]
    head = (f"# Gallery\n\n<!-- Made by scripts/make_gallery.py, do not edit. -->\n\n"
            f"The shaders of `examples/gallery/` at {SIZE}, four samples per pixel. Times are processor\n"
            f"time per fragment, at one sample, on the machine of [performance.md](performance.md). A\n"
            f"picture leads to its source.\n\n")
    sections = [section(program, source) for source in sources]
    (ROOT / "docs/gallery.md").write_text(head + "\n".join(sections))
    animate(program)


if __name__ == "__main__":
    main()
