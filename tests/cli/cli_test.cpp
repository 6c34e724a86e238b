// The program as its users see it: exit codes, messages, files.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "support/text_cases.h"

namespace {

namespace fs = std::filesystem;
using shadermachine::tests::readFile;

struct Outcome {
  int exitCode;
  std::string output;  // of both streams
};

Outcome run(const std::string& arguments) {
  FILE* pipe = popen(("{ '" SHADERMACHINE_PROGRAM "' " + arguments + "; } 2>&1").c_str(), "r");
  if (pipe == nullptr) return {-1, "popen failed"};
  std::string output;
  char buffer[4096];
  for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) output.append(buffer, n);
  const int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

// Every test works in an empty folder of its own.
class Cli : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "shadermachine-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    fs::current_path(folder_);
    write("good.sasm", shader("LOAD_GLOBAL uv\nLOAD_GLOBAL u_time\nPUSH_1_F\nCTOR_VEC4_A 2, 1, 1"));
    write("bad.sasm", shader("PUSH_IT 3"));
    write("unsafe.sasm", shader("POP"));
    write("failing.sasm", shader("PUSH_INDEX_IMM 4\nPUSH_ZERO4\nVEC_ELEMENT 4\nPUSH_ZERO4"));
    write("endless.sasm", shader("again:\nJUMP again\nPUSH_ZERO4"));
    write("steps.txt", "stepi 1000000000000\n");
    write("number.sasm", "\xef\xbb\xbf.global int n host\n" + shader("PUSH_ZERO4"));
    write("large.sasm", ".global float g[1000000000] host\n" + shader("PUSH_ZERO4"));
    write("junk.png", "no picture");
    // 16384 x 16384 texels of one bit, of which nothing follows.
    write("short.png",
          std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\x40\0\0\0\x40\0\1\0\0\0\0\x81\xb3\x2d\x29"
                      "\0\0\0\x0dIDAT",
                      41));
    write("junk.smo", "no shader");
    fs::create_symlink("/dev/full", "full");
    write("good.frag",
          "uniform vec2 u_resolution;\nvoid main() {\n  gl_FragColor = "
          "vec4(gl_FragCoord.xy / u_resolution, 0.0, 1.0);\n}\n");
    write("bad.frag", "void main() {\n  gl_FragColor = vec4(x);\n}\n");
  }
  void TearDown() override {
    fs::current_path("/");
    fs::remove_all(folder_);
  }

  static std::string shader(const std::string& code) {
    return ".global vec4 colour\n.global vec2 uv host\n.global float u_time host\n"
           ".global sampler2 picture host\n.output0 colour\n.function main\n" +
           code + "\nSTORE_GLOBAL colour\nRETURN\n.end\n";
  }
  static void write(const char* name, const std::string& text) { std::ofstream(name) << text; }

 private:
  fs::path folder_;
};

TEST_F(Cli, ExitCodesAndMessages) {
  struct Case {
    const char* arguments;
    int exitCode;
    const char* message;  // part of the output
  };
  const Case cases[] = {
      {"--version", 0, "shadermachine 1."},
      {"asm good.sasm", 0, ""},
      {"val good.sasm", 0, ""},
      {"dis good.sasm --annotate", 0, "LOAD_GLOBAL uv"},
      {"opcodes", 0, "205  BIT_NOT"},
      {"run good.sasm --size 4x2 --pixel 3,0 --time 2", 0,
       "code 0: No error.\ncolour: 0.875 0.75 2 1\n"},
      {"run good.sasm --trace=instructions --size 2x2", 0,
       "main+7              CTOR_VEC4_A 2, 1, 1               S0 = 0.75 0.25 0 1.0\n"},
      {"render good.sasm --size 8x8", 0, "warning: host variable 'picture' has no value"},
      {"render good.sasm --size 8x8 --stats", 0, "64  code 0: No error."},

      {"asm missing.sasm", 1, "missing.sasm: No such file or directory"},
      {"asm .", 1, ".: Is a directory"},
      {"asm bad.sasm", 1, "bad.sasm:7:1: error: unknown instruction 'PUSH_IT'"},
      {"val unsafe.sasm", 1, "unsafe.sasm:7:1: error: "},
      {"render unsafe.sasm", 1, "the shader does not validate"},
      {"run unsafe.sasm", 1, "the shader does not validate"},
      {"opcodes > /dev/full", 1, "standard output: "},
      {"dis good.sasm > /dev/full", 1, "standard output: cannot be written"},
      {"--help > /dev/full", 1, "standard output: cannot be written"},
      {"render good.sasm --size 2x2 -o full", 1, "full: No space left on device"},
      {"render good.sasm --texture picture=missing.png", 1, "missing.png"},
      {"render good.sasm --texture picture=junk.png", 1, "junk.png"},
      {"render good.sasm --texture picture=short.png", 1,
       "short.png: the file is too short for its picture"},
      {"render number.sasm --set n=4294967295", 0, ""},
      {"render number.sasm --set n=nan", 1, "'n' has an integer as component 1, which does not"},
      {"render number.sasm --set n=1.5", 1, "does not hold the value"},
      {"render number.sasm --set n=99999999999", 1, "does not hold the value"},
      {"render good.sasm --set u_time=1e39", 1, "'u_time' has a float as component 1"},
      {"render large.sasm", 1, "the host variables take more than 64 MiB"},
      {"render good.sasm --set u_tine=1", 1,
       "has no host variable 'u_tine', did you mean 'u_time'?"},
      {"render good.sasm --set uv[0]=1", 1, "there is no element [0]"},
      {"render good.sasm --set u_time=1,2", 1, "'u_time' has 1 components, 2 given"},
      {"render good.sasm --size 2x2 -o missing/out.png", 1, "missing/out.png"},

      {"", 2, "render "},
      {"help", 0, "opcodes "},
      {"help run", 0, "Usage: shadermachine run"},
      {"help rum", 1, "did you mean 'run'?"},
      {"help inputs", 0, "iResolution, u_resolution"},
      {"opcodes vec_element", 0, "n: component count, at most 16"},
      {"opcodes --json", 0, "\"name\": \"BIT_NOT\""},
      {"man", 0, ".SH INPUTS"},
      {"completion bash", 0, "--no-validate"},
      {"completion fish", 0, "-l samples -r"},
      {"completion zsh", 0, "--samples["},
      {"rendre good.sasm", 2, "no subcommand is named 'rendre', did you mean 'render'?"},
      {"render good.sasm --sise 2x2", 2, "is named '--sise', did you mean '--size'?"},
      {"opcodes VEC_ELEMEN", 1, "did you mean 'VEC_ELEMENT'?"},
      {"asm good.sasm -o a.txt", 2, "expected FILE.smo or FILE.sasm"},
      {"asm good.sasm good.sasm -o a.smo", 2, "takes one shader"},
      {"render good.sasm -o a.gif", 2, "png, ppm or raw, not gif"},
      {"render good.sasm --region 1,1,1", 2, "expected X,Y,WIDTHxHEIGHT"},
      {"render good.sasm --size 4x4 --region 3,3,2x1", 2, "lies outside of the picture"},
      {"asm junk.smo", 1, "junk.smo: error: the file is no binary shader"},
      {"val unsafe.sasm --language glsl", 1, "unsafe.sasm:"},
      {"render", 2, "shader is required"},
      {"render good.sasm --size 8", 2, "expected WIDTHxHEIGHT"},
      {"render good.sasm --size 0x8", 2, "expected WIDTHxHEIGHT"},
      {"render good.sasm --frames 3", 2, "expected FIRST:LAST"},
      {"render good.sasm --frames 3:2", 2, "expected FIRST:LAST"},
      {"render good.sasm --set u_time=x", 2, "expected name=number"},
      {"render good.sasm --texture picture", 2, "expected name=file"},
      {"run good.sasm --size 4x4 --pixel 4,0", 2, "outside of the picture"},

      {"render failing.sasm --size 3x2", 3,
       "failing.sasm:9:1: error: pixel (0, 0): Array index out of bounds. (function main, offset "
       "3, "
       "VEC_ELEMENT); 6 of 6 fragments failed\n  VEC_ELEMENT 4\n  ^\n"},
      {"run failing.sasm", 3, "Array index out of bounds. (function main, offset 3, VEC_ELEMENT)"},
      {"debug endless.sasm --timeout 20 < /dev/null", 0, "at endless.sasm:8"},
      {"debug endless.sasm --timeout 20 < steps.txt", 0, "still running; continue goes on"},
      {"render endless.sasm --timeout 20", 3,
       "Shader execution timed out. (function main, offset 0, JUMP)"},
  };
  for (const Case& c : cases) {
    const Outcome outcome = run(c.arguments);
    EXPECT_EQ(outcome.exitCode, c.exitCode) << c.arguments << "\n" << outcome.output;
    EXPECT_NE(outcome.output.find(c.message), std::string::npos) << c.arguments << "\n"
                                                                 << outcome.output;
  }
}

// What cannot be written leaves the old file as it was; what can keeps its mode and links.
TEST_F(Cli, FilesAreReplacedAsAWhole) {
  ASSERT_EQ(run("render good.sasm --size 2x2 -o old.png").exitCode, 0);
  const std::string before = readFile("old.png");
  fs::permissions("old.png", fs::perms::owner_all);
  fs::create_symlink("old.png", "link.png");
  ASSERT_EQ(run("render good.sasm --size 2x2 -o link.png").exitCode, 0);
  EXPECT_EQ(readFile("old.png"), before);
  EXPECT_TRUE(fs::is_symlink("link.png"));
  EXPECT_EQ(fs::status("old.png").permissions(), fs::perms::owner_all);
  // Files may not grow: the shell's limit is in blocks of 512 or 1,024 bytes.
  const std::string limited = "ulimit -f 1; trap '' XFSZ; exec '" SHADERMACHINE_PROGRAM
                              "'"
                              " render good.sasm --size 256x256 -o old.png";
  EXPECT_NE(std::system(("sh -c \"" + limited + "\" 2>log").c_str()), 0);
  EXPECT_TRUE(readFile("log").ends_with("old.png: File too large\n"));
  EXPECT_EQ(readFile("old.png"), before);
  for (const fs::directory_entry& file : fs::directory_iterator(".")) {
    EXPECT_FALSE(file.path().filename().string().starts_with('.')) << file;
  }
}

TEST_F(Cli, FramesAreNumberedAndDiffer) {
  ASSERT_EQ(run("render good.sasm --size 8x4 --frames 9:10 -o frames.of/a.png").exitCode, 1);
  fs::create_directory("frames.of");
  ASSERT_EQ(run("render good.sasm --size 8x4 --frames 9:10 -o frames.of/a").exitCode, 0);
  ASSERT_EQ(run("render good.sasm --size 8x4 --frames 9:10 -o frames.of/a.png").exitCode, 0);
  EXPECT_TRUE(fs::exists("frames.of/a-0009"));
  EXPECT_NE(readFile("frames.of/a-0009.png"), readFile("frames.of/a-0010.png"));
  EXPECT_EQ(readFile("frames.of/a-0010.png"), readFile("frames.of/a-0010"));
  EXPECT_FALSE(fs::exists("frames.of/a.png"));
}

TEST_F(Cli, PicturesCanBeTextures) {
  ASSERT_EQ(run("render good.sasm --size 4x4 --time 0.5 -o a.png").exitCode, 0);
  write("copy.sasm", shader("LOAD_GLOBAL picture\nLOAD_GLOBAL uv\nHOST_LOOKUP_1 2, 2"));
  ASSERT_EQ(run("render copy.sasm --size 4x4 --texture picture=a.png,nearest -o b.png").exitCode,
            0);
  EXPECT_EQ(readFile("a.png"), readFile("b.png"));
}

#ifdef SHADERMACHINE_HAVE_GLSL
// Faces of which each is bluer than the one before, looked at along the axes.
TEST_F(Cli, CubeMapsOfSixFiles) {
  const char* const faces[] = {"px", "nx", "py", "ny", "pz", "nz"};
  for (int i = 0; i < 6; ++i) {
    const std::string time = std::to_string(i * 0.2);
    ASSERT_EQ(
        run("render good.sasm --size 4x4 --time " + time + " -o sky_" + faces[i] + ".png").exitCode,
        0);
  }
  write("cube.frag",
        "#iChannel0 \"sky_{}.png\"\n#iChannel0::Type \"CubeMap\"\n"
        "void mainImage(out vec4 c, in vec2 p) {\n  int i = int(p.x);\n  vec3 d = vec3(0.0);\n"
        "  d[i / 2] = i % 2 == 0 ? 1.0 : -1.0;\n  c = vec4(texture(iChannel0, d).b);\n}\n");
  ASSERT_EQ(run("render cube.frag --size 6x1 -o a.ppm").output, "");
  EXPECT_EQ(readFile("a.ppm").substr(11), std::string("\0\0\0\x33\x33\x33\x66\x66\x66\x99\x99\x99"
                                                      "\xcc\xcc\xcc\xff\xff\xff",
                                                      18));
}

TEST_F(Cli, GlslBecomesAssembly) {
  EXPECT_EQ(run("glsl bad.frag").output,
            "bad.frag:2:23: error: undeclared identifier 'x'\n    gl_FragColor = vec4(x);\n" +
                std::string(24, ' ') +
                "^\nbad.frag: note: read as #version 100, as the source names none\n");
  EXPECT_EQ(run("glsl bad.frag").exitCode, 1);
  EXPECT_EQ(run("glsl good.frag -o missing/a.sasm").exitCode, 1);
  ASSERT_EQ(run("glsl good.frag -o a.sasm").output, "");
  EXPECT_EQ(run("glsl good.frag").output, readFile("a.sasm"));
  EXPECT_EQ(run("val a.sasm good.frag").output, "");
  ASSERT_EQ(run("render a.sasm --size 5x4 -o a.png").exitCode, 0);
  ASSERT_EQ(run("render good.frag --size 5x4 -o b.png").exitCode, 0);
  EXPECT_EQ(readFile("a.png"), readFile("b.png"));
}
#endif

TEST_F(Cli, BinaryFilesAndStandardInput) {
  ASSERT_EQ(run("asm good.sasm -o good.smo").output, "");
  EXPECT_EQ(run("dis good.smo").output, run("dis good.sasm").output);
  EXPECT_EQ(run("val good.smo - < good.smo").output, "");
  ASSERT_EQ(run("render good.smo --size 5x4 -o a.png").exitCode, 0);
  ASSERT_EQ(run("render - --size 5x4 -o - < good.sasm > b.png").exitCode, 0);
  EXPECT_EQ(readFile("a.png"), readFile("b.png"));
}

// 2 x 1 pixels, the right one: 0.75 0.5 1 1; the file's bytes after its header.
TEST_F(Cli, PictureFormats) {
  const std::string render = "render good.sasm --time 1 --size 2x1 -o ";
  ASSERT_EQ(run(render + "a.ppm").exitCode, 0);
  EXPECT_EQ(readFile("a.ppm"), "P6\n2 1\n255\n\x40\x80\xff\xbf\x80\xff");
  ASSERT_EQ(run(render + "a.raw --gamma 2").exitCode, 0);
  EXPECT_EQ(readFile("a.raw"), "\x80\xb4\xff\xff\xdd\xb4\xff\xff");
  ASSERT_EQ(run(render + "- --format raw --frames 0:2 > b.raw").exitCode, 0);
  EXPECT_EQ(readFile("b.raw").size(), 3u * 2 * 4);
  ASSERT_EQ(run(render + "a.pfm --gamma 2").exitCode, 0);
  const float texels[] = {0.25f, 0.5f, 1, 0.75f, 0.5f, 1};
  const std::string floats(reinterpret_cast<const char*>(texels), sizeof texels);
  EXPECT_EQ(readFile("a.pfm"), "PF\n2 1\n-1.0\n" + floats);
  ASSERT_EQ(run(render + "a.raw --region 1,0,1x1").exitCode, 0);
  EXPECT_EQ(readFile("a.raw"), "\xbf\x80\xff\xff");
}

#ifdef SHADERMACHINE_HAVE_GLSL
// The manual's sessions: a line "$ shadermachine ..." and what it prints, commands among it.
TEST_F(Cli, SessionsOfTheManual) {
  const std::string manual = readFile(DEBUGGING_MANUAL);
  const std::string examples =
      fs::path(DEBUGGING_MANUAL).parent_path().parent_path() / "examples/debugging";
  fs::copy(examples, ".");
  const std::string opening = "```console\n$ shadermachine ";
  size_t count = 0;
  for (size_t at = manual.find(opening); at != std::string::npos; at = manual.find(opening, at)) {
    at += opening.size();
    const std::string session = manual.substr(at, manual.find("```", at) - at);
    const size_t end = session.find('\n');
    std::string script;
    std::istringstream lines(session.substr(end + 1));
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("(debug) ")) script += line.substr(8) + "\n";
    }
    write("script", script);
    EXPECT_EQ(run(session.substr(0, end) + " < script").output, session.substr(end + 1));
    ++count;
  }
  EXPECT_GE(count, 3u);
}
#endif

}  // namespace
