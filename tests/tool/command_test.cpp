// The program as its users meet it: exit codes, messages, files written and files left alone.
#include "bmode.h"
#include "png_file.h"
#include "recipe.h"
#include "synthetic.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/stat.h>
#include <sys/wait.h>
#endif

using namespace echo2image;
namespace fs = std::filesystem;

namespace {

std::string program()
{
    const char* named = std::getenv("ECHO2IMAGE");
    return fs::absolute(named != nullptr && *named != '\0' ? named : ECHO2IMAGE_PATH).string();
}

std::string content_of(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// What a program printed, with this system's ends of lines.
std::string text_of(const fs::path& file)
{
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void write_file(const fs::path& file, const std::string& content)
{
    std::ofstream(file, std::ios::binary) << content;
}

#ifdef _WIN32
int run_in(const fs::path& folder, std::string command, const fs::path& out, const fs::path& err)
{
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    const auto file = [&](const fs::path& name) {
        return CreateFileW(name.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherited, CREATE_ALWAYS, 0, nullptr);
    };
    STARTUPINFOA streams = {};
    streams.cb = sizeof streams;
    streams.dwFlags = STARTF_USESTDHANDLES;
    streams.hStdOutput = file(out);
    streams.hStdError = file(err);
    PROCESS_INFORMATION process = {};
    DWORD code = 99;
    if (CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr, folder.string().c_str(), &streams,
                       &process)) {
        WaitForSingleObject(process.hProcess, INFINITE);
        GetExitCodeProcess(process.hProcess, &code);
        CloseHandle(process.hThread);
        CloseHandle(process.hProcess);
    }
    CloseHandle(streams.hStdOutput);
    CloseHandle(streams.hStdError);
    return static_cast<int>(code);
}
#endif

struct Outcome
{
    int code; // 128 + signal when killed
    std::string out;
    std::string err;
};

// A folder of its own per test, with recordings in it, and the program run inside.
class Commands : public testing::Test
{
protected:
    static constexpr int frames = 3;
    static constexpr int lines = 40;
    static constexpr int samples = 500;

    fs::path base;
    fs::path folder; // where the program runs
    fs::path streams;

    void SetUp() override
    {
        std::random_device random;
        base = fs::temp_directory_path() / ("command_test_" + std::to_string(random()));
        folder = base / "work";
        streams = base / "streams";
        fs::create_directories(folder);
        fs::create_directories(streams);

        std::mt19937 generator(1);
        std::string rf;
        for (int frame = 0; frame < frames; ++frame)
            for (int line = 0; line < lines; ++line)
                for (int sample = 0; sample < samples; ++sample) {
                    const double echo = (frame == 1 ? 2000 : 1000) * std::cos(0.25 * 3.14159265 * sample) *
                                        std::exp(-std::pow((sample - 100 - 5 * line) / 20.0, 2));
                    const int noise = static_cast<int>(generator() % 21) - 10;
                    const auto value = static_cast<std::int16_t>(std::lround(echo) + noise);
                    rf.append(reinterpret_cast<const char*>(&value), sizeof value);
                }
        write_file(folder / "rf.raw", rf);
        describe("rf", "file: rf.raw\ncontent: rf\ntype: int16\naxes: [frame, line, sample]\nshape: [3, 40, 500]\n"
                       "sampling_frequency: 40 MHz\ncenter_frequency: 5 MHz\nbandwidth: 3 MHz\n"
                       "geometry: {kind: linear, line_pitch: 0.3 mm}\n");
        // Two firings of opposite polarity, clipped a little, and an ensemble that has none.
        std::string pairs;
        for (int line = 0; line < lines; ++line)
            for (const int sign : {1, -1})
                for (int sample = 0; sample < samples; ++sample) {
                    const double t = sample - 100 - 5 * line;
                    const double echo = 40000 * std::cos(0.25 * 3.14159265 * t) * std::exp(-std::pow(t / 20.0, 2));
                    const auto value = static_cast<std::int16_t>(std::clamp(sign * echo + 0.001 * echo * t, -32768.0, 32767.0));
                    pairs.append(reinterpret_cast<const char*>(&value), sizeof value);
                }
        write_file(folder / "pairs.raw", pairs);
        const std::string scan = "sampling_frequency: 40 MHz\ncenter_frequency: 5 MHz\nbandwidth: 2 MHz\n"
                                 "geometry: {kind: linear, line_pitch: 0.3 mm}\n";
        describe("pairs", "file: pairs.raw\ncontent: rf\ntype: int16\naxes: [line, firing, sample]\n"
                          "shape: [40, 2, 500]\n" +
                              scan);
        describe("ensemble", "file: rf.raw\ncontent: rf\ntype: int16\naxes: [firing, line, sample]\nshape: [2, 40, 500]\n"
                             "header_bytes: 40000\n" +
                                 scan);
        describe("iq", "file: rf.raw\ncontent: iq\ntype: int16\naxes: [frame, line, sample, component]\n"
                       "shape: [3, 20, 500, 2]\nsample_spacing: 0.1 mm\n"
                       "geometry: {kind: curved, opening_angle: 60 deg, apex_radius: 40 mm}\n");
        describe("grey", "file: rf.raw\ncontent: bmode\ntype: uint8\naxes: [frame, line, sample]\nshape: [3, 40, 1000]\n"
                         "sample_spacing: 0.05 mm\ngeometry: {kind: sector, opening_angle: 80 deg, apex_radius: 0 mm}\n");
        describe("picture", "file: rf.raw\ncontent: bmode\ntype: uint8\naxes: [frame, row, column]\nshape: [3, 200, 200]\n"
                            "geometry: {kind: picture}\n");
    }
    void TearDown() override
    {
        std::error_code ignored;
        fs::remove_all(base, ignored);
    }

    void describe(const std::string& name, const std::string& text) { write_file(folder / (name + ".yml"), text); }

    // In the test's folder, through a shell on POSIX, where `before` may set limits.
    Outcome run(std::string arguments, const std::string& before = "", const std::string& after = "") const
    {
#ifdef _WIN32
        EXPECT_EQ(before + after, "");
        std::replace(arguments.begin(), arguments.end(), '\'', '"');
        const int code = run_in(folder, '"' + program() + "\" " + arguments, streams / "out", streams / "err");
#else
        const std::string command = "cd '" + folder.string() + "' || exit 99; (" + before + " exec '" + program() + "' " +
                                    arguments + " >'" + (streams / "out").string() + "' 2>'" + (streams / "err").string() +
                                    "') " + after;
        const int status = std::system(command.c_str());
        const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
#endif
        return {code, text_of(streams / "out"), text_of(streams / "err")};
    }
    std::set<std::string> files() const
    {
        std::set<std::string> names;
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder))
            names.insert(fs::relative(entry.path(), folder).string());
        return names;
    }
    void expect_success(const std::string& arguments) const
    {
        const Outcome result = run(arguments);
        EXPECT_EQ(result.code, 0) << arguments << "\n" << result.err;
        EXPECT_EQ(result.err, "") << arguments;
    }
    // Exit code 2, one line that says what is wrong, and nothing new in the folder.
    void expect_refusal(const std::string& arguments, const std::string& what, const std::string& before = "") const
    {
        const std::set<std::string> before_it = files();
        const Outcome result = run(arguments, before);
        EXPECT_EQ(result.code, 2) << arguments << "\n" << result.err;
        EXPECT_EQ(result.err.rfind("echo2image: ", 0), 0u) << arguments << "\n" << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << arguments << "\n" << result.err;
        EXPECT_NE(result.err.find(what), std::string::npos) << arguments << "\n" << result.err << "expected: " << what;
        EXPECT_EQ(result.out, "") << arguments;
        EXPECT_EQ(files(), before_it) << arguments;
    }
    void rewrite(const std::string& name, GreyImage image, const TextFields& text) const
    {
        OutputFile file(folder / name);
        write_png(file, image, text);
        file.commit();
    }
};

TEST_F(Commands, SayWhatTheyDo)
{
    EXPECT_EQ(run("--version").out.rfind("echo2image ", 0), 0u);
    for (const char* command : {"bmode", "colour", "demo", "filter", "info", "motion", "verify"}) {
        EXPECT_NE(run("--help").out.find(command), std::string::npos);
        EXPECT_EQ(run(std::string(command) + " --help").code, 0);
    }
    const Outcome info = run("info rf.yml");
    EXPECT_EQ(info.code, 0);
    EXPECT_NE(info.out.find("40 MHz"), std::string::npos) << info.out;
}

TEST_F(Commands, MakePicturesThatCanBeMadeAgain)
{
    const std::string cases[] = {
        "bmode rf.yml -o picture.png",
        "bmode rf.yml -o picture.png --general",
        "bmode rf.yml -o picture.png --taps 32 --decimation 8",
        "bmode rf.yml -o picture.png --frame 2 --dynamic-range 45.3dB --reference 1234.5 --taps 31 --decimation 3 "
        "--bandwidth 2MHz --center-frequency '4.9123456789 MHz' --width 333 --scale "
        "--upsample=fast --interpolate 2 --smooth --sound-speed 1.48km/s",
        "bmode rf.yml -o picture.png --upsample --interpolate 4 --smooth --envelope envelope.npy",
        "bmode pairs.yml -o picture.png --harmonic sum --interpolate 2",
        "bmode pairs.yml -o picture.png --harmonic blend --ramp 2mm:5mm --percent 80 --scale",
        "bmode iq.yml -o picture.png --decimation 2 --frame 1 --smooth --sound-speed 1500",
        "bmode grey.yml -o picture.png --width 200 --scale --smooth --sound-speed '1500 m/s'",
        "bmode picture.yml -o picture.png --frame 2",
        "bmode rf.yml -o picture.png --frame 2 --median3 --smooth --median2d 5 --persist 12",
        "bmode picture.yml -o picture.png --frame 2 --box --average 2",
        "motion picture.yml 2 0 -o picture.png --block 64x21 --grid 9 --search 7x3 --threshold 0.123",
        "motion rf.yml 0 1 -o picture.png --width 200 --dynamic-range 45dB --scale",
        "motion iq.yml 1 2 -o picture.png",
    };
    for (const std::string& arguments : cases) {
        SCOPED_TRACE(arguments);
        expect_success(arguments);
        const std::string bytes = content_of(folder / "picture.png");
        const Outcome info = run("info picture.png");
        EXPECT_EQ(info.code, 0);
        for (const char* keyword : {"Software: echo2image ", "Command: ", "Input SHA-256: ", "Pixels SHA-256: ", "Width: "})
            EXPECT_NE(info.out.find(keyword), std::string::npos) << info.out;
        const Outcome verified = run("verify picture.png");
        EXPECT_EQ(verified.code, 0) << verified.out << verified.err;
        expect_success(arguments);
        EXPECT_EQ(content_of(folder / "picture.png"), bytes) << "another run gave another file";
    }
    // Every parameter travels, and the numbers without loss.
    expect_success(cases[0]);
    EXPECT_EQ(recipe_of(read_png(folder / "picture.png").text, "").chain.detector, DetectorKind::fixed);
    expect_success(cases[3]);
    const PngPicture picture = read_png(folder / "picture.png");
    const Recipe recipe = recipe_of(picture.text, "picture.png");
    EXPECT_EQ(recipe.frame, 2);
    EXPECT_EQ(recipe.chain.dynamic_range, 45.3);
    EXPECT_EQ(recipe.chain.reference, 1234.5F);
    EXPECT_EQ(recipe.chain.detector, DetectorKind::general);
    EXPECT_EQ(recipe.chain.taps, 31);
    EXPECT_EQ(recipe.chain.decimation, 3);
    EXPECT_EQ(recipe.chain.bandwidth, 2e6);
    EXPECT_NEAR(recipe.chain.center_frequency, 4912345.6789, 1e-6);
    EXPECT_EQ(recipe.chain.width, 333);
    EXPECT_TRUE(recipe.chain.scale);
    EXPECT_EQ(recipe.chain.sound_speed, 1480);
    EXPECT_EQ(recipe.chain.rf.upsampling, Upsampling::fast);
    EXPECT_EQ(recipe.chain.rf.interpolate, 2);
    EXPECT_TRUE(recipe.chain.smooth);
    EXPECT_GT(picture.image.width, 333);
    EXPECT_EQ(recipe.pixel_digest, digest_of(picture.image));
}

TEST_F(Commands, FilterCines)
{
    expect_success("filter grey.yml -o a.png --frames all --persist 12 --median2d --median3 --persist=4 --scale");
    const PngPicture last = read_png(folder / "a-0002.png");
    const Recipe recipe = recipe_of(last.text, "a-0002.png");
    EXPECT_EQ(recipe.command, "filter");
    EXPECT_EQ(to_text(recipe.chain.filters), "persist 12, median2d 3, median3, persist 4"); // as given, twice if given twice
    for (const char* name : {"a-0000.png", "a-0002.png"})
        EXPECT_EQ(run(std::string("verify ") + name).code, 0) << name;
    // A picture is the same whichever frames are made with it, and whatever stands in front of the recording's name.
    expect_success("filter --frame 2 -o b.png --scale --persist 12 --median2d 3 --median3 --persist 4 grey.yml");
    EXPECT_EQ(content_of(folder / "b.png"), content_of(folder / "a-0002.png"));
    expect_success("filter --frame 2 -o b.png --median2d grey.yml --median3");
    expect_success("bmode --frame 2 -o c.png --median2d 3 --median3 grey.yml");
    EXPECT_EQ(read_png(folder / "b.png").image.pixels, read_png(folder / "c.png").image.pixels);
    expect_success("filter --frame 2 -o c.png --median3 --median2d grey.yml");
    EXPECT_NE(read_png(folder / "b.png").image.pixels, read_png(folder / "c.png").image.pixels) << "their order matters";
    // Of RF: frame 1 is twice as strong as its neighbours, and the median hides it.
    expect_success("bmode rf.yml -o d.png --frames 1:3 --reference 2000 --median3");
    expect_success("bmode rf.yml -o e.png --frames 1:3 --reference 2000 --average 2");
    const std::vector<std::uint8_t> hidden = read_png(folder / "d-0002.png").image.pixels;
    EXPECT_LT(*std::max_element(hidden.begin(), hidden.end()), 235);
    EXPECT_EQ(run("verify d-0002.png").code, 0);
    EXPECT_NE(content_of(folder / "d-0001.png"), content_of(folder / "e-0001.png"));

    expect_refusal("filter grey.yml -o x.png", "at least one filter");
    expect_refusal("filter rf.yml -o x.png --median3", "rf.yml: filter: expected grey values, found rf; bmode takes");
    expect_refusal("filter -o x.png --median2d", "filter: expected a RECORDING");
    expect_refusal("filter grey.yml --median3", "filter: expected an output, -o PICTURE.png, found none");
    expect_refusal("filter grey.yml -o x.png --median3=2", "--median3: expected no value, found \"2\"");
    expect_refusal("filter grey.yml -o x.png --persist 16", "--persist: expected 1..15, found \"16\"");
    expect_refusal("filter grey.yml -o x.png --median2d 7", "--median2d: expected 3|5, found \"7\"");
    PngPicture changed = last;
    for (auto& [keyword, text] : changed.text)
        if (keyword == "Filters")
            text = "persist 12, median4";
    rewrite("changed.png", changed.image, changed.text);
    expect_refusal("verify changed.png", "\"Filters\" must be filters such as");
}

TEST_F(Commands, FindWhatDiffers)
{
    expect_success("bmode rf.yml -o picture.png --width 100");
    const PngPicture original = read_png(folder / "picture.png");

    PngPicture changed = original;
    changed.image.pixels[static_cast<std::size_t>(7 * changed.image.width + 12)] ^= 3;
    rewrite("changed.png", changed.image, changed.text);
    Outcome result = run("verify changed.png");
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.out.find("pixels: 1 of "), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("column 12, row 7"), std::string::npos) << result.out;

    // The forger adapts the digest, too.
    for (auto& [keyword, text] : changed.text)
        if (keyword == "Pixels SHA-256")
            text = digest_of(changed.image);
    rewrite("changed.png", changed.image, changed.text);
    EXPECT_EQ(run("verify changed.png").code, 1);

    for (const char* changed_keyword : {"Dynamic range in dB", "Pixels SHA-256"}) {
        changed = original;
        for (auto& [keyword, text] : changed.text)
            if (keyword == changed_keyword)
                text = "59";
        rewrite("changed.png", changed.image, changed.text);
        EXPECT_EQ(run("verify changed.png").code, 1) << changed_keyword;
    }

    changed = original;
    changed.image.height -= 1;
    changed.image.pixels.resize(static_cast<std::size_t>(changed.image.width * changed.image.height));
    rewrite("changed.png", changed.image, changed.text);
    EXPECT_EQ(run("verify changed.png").code, 1);

    // A moved recording is found by name, a changed one is noticed, a missing one is an error.
    fs::create_directory(folder / "away");
    fs::rename(folder / "rf.raw", folder / "away/rf.raw");
    fs::rename(folder / "rf.yml", folder / "away/rf.yml");
    expect_refusal("verify picture.png", "--input");
    EXPECT_EQ(run("verify picture.png --input away/rf.yml").code, 0);
    std::string rf = content_of(folder / "away/rf.raw");
    rf.back() = static_cast<char>(rf.back() ^ 1); // in the last frame, the picture shows the first
    write_file(folder / "away/rf.raw", rf);
    result = run("verify picture.png --input away/rf.yml");
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.out.find("input: SHA-256"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("pixels: all"), std::string::npos) << result.out;

    const std::string bytes = content_of(folder / "picture.png");
    write_file(folder / "cut.png", bytes.substr(0, bytes.size() / 2));
    expect_refusal("verify cut.png", "cut.png: damaged PNG");
    expect_refusal("info cut.png", "cut.png: damaged PNG");
    rewrite("plain.png", original.image, {});
    expect_refusal("verify plain.png", "recipe");
    expect_refusal("info plain.png", "recipe");
    changed = original;
    for (auto& [keyword, text] : changed.text)
        if (keyword == "Taps")
            text = "many " + std::string(5000, 'x');
    rewrite("changed.png", changed.image, changed.text);
    expect_refusal("verify changed.png", "\"Taps\" must be a number, found \"many xxx");
    EXPECT_LT(run("verify changed.png").err.size(), 500u);
    changed = original;
    changed.text.emplace_back("Comment", "two\nlines, and \x1b[31mred");
    rewrite("changed.png", changed.image, changed.text);
    EXPECT_NE(run("info changed.png").out.find("Comment: two\\x0alines, and \\x1b[31mred\n"), std::string::npos);

    // No memory for what is only claimed: a chunk of 1.75 GB, and rows for 536 megapixels.
    std::string claims = bytes;
    claims.replace(bytes.find("tEXtSoftware") - 4, 2, "\x70\x01");
    write_file(folder / "claims.png", claims);
    expect_refusal("verify claims.png", "claims.png: damaged PNG: tEXt: chunk data is too large");
#if !defined(ECHO2IMAGE_UNDER_SANITIZER) && !defined(_WIN32)
    // Sanitizers need address space of their own, and Windows has no ulimit.
    write_file(folder / "claims.png", bytes.substr(0, 16) +
                                          std::string("\0\0\x03\xe8\0\x08\x2d\xc0\x08\0\0\0\0\xcf\x50\x55\x17", 17) +
                                          bytes.substr(bytes.find("IDAT") - 4));
    expect_refusal("verify claims.png", "claims.png: damaged PNG", "ulimit -v 300000;");
#endif
    expect_refusal("verify away/rf.yml", "a PNG picture is expected");
}

TEST_F(Commands, VerifySyntheticPictures)
{
    const SyntheticFrame frame = synthesise(7);
    ChainParameters wanted;
    wanted.scale = true;
    wanted.width = 400;
    Chain chain(frame.description, wanted);
    const EnvelopeFrame envelope = chain.detector().detect(frame.rf);
    chain.set_reference(largest(envelope));
    Recipe recipe;
    recipe.command = "demo";
    recipe.input = Recipe::Input::synthetic;
    recipe.seed = 7;
    recipe.input_digest = digest_of(frame.rf);
    recipe.chain = chain.parameters();
    write_picture(folder / "seven.png", chain.picture(envelope), recipe);
    const Outcome equal = run("verify seven.png");
    EXPECT_EQ(equal.code, 0) << equal.out << equal.err;
    recipe.seed = 8;
    write_picture(folder / "eight.png", chain.picture(envelope), recipe);
    EXPECT_EQ(run("verify eight.png").code, 1);
    expect_refusal("verify seven.png --input rf.yml", "--input");
}

TEST_F(Commands, TrackSpeckle)
{
    // Frame 1 is frame 0 moved 3 columns to the right and 2 rows up.
    std::mt19937 generator(2);
    std::string noise;
    for (int i = 0; i < 110 * 120; ++i)
        noise += static_cast<char>(generator() % 256);
    std::string pixels;
    for (int frame = 0; frame < 2; ++frame)
        for (int row = 0; row < 100; ++row)
            pixels += noise.substr(static_cast<std::size_t>((row + 5 + 2 * frame) * 120 + 10 - 3 * frame), 100);
    write_file(folder / "moved.raw", pixels);
    const std::string layout =
        "file: moved.raw\ncontent: bmode\ntype: uint8\naxes: [frame, row, column]\nshape: [2, 100, 100]\n";
    describe("moved", layout + "geometry: {kind: picture, column_spacing: 0.2 mm, row_spacing: 0.2 mm}\n");
    const Outcome moved = run("motion moved.yml 0 1 -o moved.png --csv moved.csv --grid 34 --timing");
    EXPECT_EQ(moved.code, 0) << moved.err;
    for (const char* text : {"tracked at 100 x 100 of 0.2 mm", "6 of 6 blocks tracked", "3.6 px (0.721 mm)", "motion search"})
        EXPECT_NE(moved.out.find(text), std::string::npos) << moved.out;
    const std::string csv = content_of(folder / "moved.csv");
    EXPECT_EQ(csv.rfind("column,row,right_px,down_px,right_mm,down_mm,correlation,outcome\n15.5,32.0,3,-2,0.6000,-0.4000,", 0),
              0u)
        << csv;
    EXPECT_EQ(std::count(csv.begin(), csv.end(), '\n'), 7);

    // The recipe names what is tracked; another option or another frame is another picture.
    const PngPicture picture = read_png(folder / "moved.png");
    for (const char* keyword : {"Second frame", "Grid", "Search range across", "Correlation threshold"}) {
        TextFields changed = picture.text;
        for (auto& [name, text] : changed)
            if (name == keyword)
                text = "0.999";
        rewrite("changed.png", picture.image, changed);
        EXPECT_NE(run("verify changed.png").code, 0) << keyword;
    }

    expect_refusal("motion moved.yml 0 2 -o new.png", "B: expected a whole number from 0 to 1");
    expect_refusal("motion moved.yml 0 1 -o new.png --block 33x33", "--block");
    expect_refusal("motion moved.yml 0 1 -o new.png --block 32", "--block");
    expect_refusal("motion moved.yml 0 1 -o new.png --block 128x33", "100 x 100");
    expect_refusal("motion moved.yml 0 1 -o new.png --search 12x", "--search");
    expect_refusal("motion moved.yml 0 1 -o new.png --threshold 1", "--threshold");
    expect_refusal("motion moved.yml 0 1 -o new.png --csv moved.raw", ".csv");
    expect_refusal("motion moved.yml 0 1 -o new.png --csv nowhere/new.csv", "nowhere");
    expect_refusal("motion picture.yml 0 1 -o new.png --scale", "--scale");
    describe("disguised", "file: samples.csv\n" + layout.substr(layout.find('\n') + 1) + "geometry: {kind: picture}\n");
    write_file(folder / "samples.csv", pixels);
    expect_refusal("motion disguised.yml 0 1 -o new.png --csv samples.csv", "the recording itself");
}

TEST_F(Commands, DemonstrateAndRecord)
{
    const Outcome demo = run("demo -o new/pictures --write-recording new/echoes --timing");
    EXPECT_EQ(demo.code, 0) << demo.out << demo.err;
    for (const char* text : {"bmode.png", "harmonic.png", "colour.png", "flow at +0.0 radii", "sum: fundamental",
                             "measurements are right", "pulse inversion"})
        EXPECT_NE(demo.out.find(text), std::string::npos) << demo.out;
    EXPECT_EQ(demo.out.find("WRONG"), std::string::npos);
    for (const std::string name : {"bmode.png", "harmonic.png", "colour.png", "motion.png"}) {
        EXPECT_EQ(run("verify new/pictures/" + name).code, 0) << name;
        // The documentation shows today's pictures.
        const PngPicture shown = read_png(fs::path(UTILS_SSE_SOURCE_DIR "/docs/images") / ("synthetic-" + name));
        const PngPicture made = read_png(folder / "new/pictures" / name);
        EXPECT_TRUE(shown.image.width == made.image.width && shown.rgb == made.rgb) << name;
    }

    // The recording gives the demo's picture.
    expect_success("bmode new/echoes/pairs.yml -o again.png --harmonic sum --scale");
    const PngPicture original = read_png(folder / "new/pictures/harmonic.png");
    const PngPicture again = read_png(folder / "again.png");
    EXPECT_EQ(original.image.pixels, again.image.pixels);
    EXPECT_EQ(original.image.marks, again.image.marks);
    EXPECT_TRUE(original.grey);
    EXPECT_NE(std::count(original.image.marks.begin(), original.image.marks.end(), 255), 0);

    // A mark more or less is a difference, and other colours are none of ours.
    PngPicture changed = original;
    const std::size_t marked = static_cast<std::size_t>(std::find(changed.image.marks.begin(), changed.image.marks.end(), 255) -
                                                        changed.image.marks.begin());
    changed.image.marks[marked] = 0;
    rewrite("changed.png", changed.image, changed.text);
    Outcome result = run("verify changed.png");
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.out.find("pixels: 1 of "), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("SHA-256"), std::string::npos) << result.out;

    write_file(folder / "file", "");
    expect_refusal("demo -o file", "-o");
    expect_refusal("demo -o new/pictures --write-recording file", "--write-recording");
    expect_refusal("demo --seed -1", "--seed");
}

TEST_F(Commands, NumberTheirSeries)
{
    const std::set<std::string> before = files();
    const auto made = [&] {
        std::set<std::string> names;
        for (const std::string& name : files())
            if (before.count(name) == 0) {
                names.insert(name);
                fs::remove(folder / name);
            }
        return names;
    };
    using Names = std::set<std::string>;
    expect_success("bmode rf.yml -o cine.png --frames all --width 64");
    EXPECT_EQ(run("verify cine-0002.png").code, 0);
    const Recipe first = recipe_of(read_png(folder / "cine-0000.png").text, "");
    const Recipe last = recipe_of(read_png(folder / "cine-0002.png").text, "");
    expect_success("bmode rf.yml -o brightest.png --frame 1");
    const Recipe brightest = recipe_of(read_png(folder / "brightest.png").text, "");
    EXPECT_EQ(first.chain.reference, brightest.chain.reference) << "one reference for all";
    EXPECT_EQ(last.chain.reference, brightest.chain.reference) << "one reference for all";
    fs::remove(folder / "brightest.png");
    EXPECT_EQ(made(), (Names{"cine-0000.png", "cine-0001.png", "cine-0002.png"}));
    expect_success("bmode rf.yml -o cine.png --frames 1:3 --width 64");
    EXPECT_EQ(made(), (Names{"cine-0001.png", "cine-0002.png"}));
    expect_success("bmode rf.yml -o cine.png --frames :1 --width 64");
    EXPECT_EQ(made(), (Names{"cine-0000.png"}));
    expect_success("bmode rf.yml -o cine.png --frame 1 --width 64");
    EXPECT_EQ(made(), (Names{"cine.png"}));
}

TEST_F(Commands, WriteTheEnvelope)
{
    expect_success("bmode rf.yml --envelope envelope.npy --frames 1:3 --taps 21 --decimation 4");
    const std::string npy = content_of(folder / "envelope.npy");
    ASSERT_EQ(npy.substr(0, 8), std::string("\x93NUMPY\1\0", 8));
    const std::size_t start = 10 + static_cast<unsigned char>(npy[8]) + 256u * static_cast<unsigned char>(npy[9]);
    const std::string header = npy.substr(10, start - 10);
    EXPECT_EQ(start % 64, 0u);
    EXPECT_EQ(header.back(), '\n');
    EXPECT_NE(header.find("'<f4'"), std::string::npos);
    EXPECT_NE(header.find("(2,40,125,)"), std::string::npos) << header;
    ASSERT_EQ(npy.size() - start, sizeof(float) * 2 * 40 * 125);

    const Recording recording = Recording::open(folder / "rf.yml");
    const EnvelopeFrame envelope = EnvelopeDetector(recording.description(), {21, 4, 0}).detect(recording.read_frame_i16(2));
    EXPECT_EQ(std::memcmp(envelope.values.data(), npy.data() + start + sizeof(float) * 40 * 125, sizeof(float) * 40 * 125), 0);

    const Outcome compared = run("bmode rf.yml --compare --frames all --taps 32");
    EXPECT_EQ(compared.code, 0) << compared.err;
    for (const char* text : {"EnvelopDetectGenSSED8F4", "60 dB below white", "31 taps", "37 taps", "rms", "largest"})
        EXPECT_NE(compared.out.find(text), std::string::npos) << compared.out;
}

// Stages and their shares, whatever they take; what is repeated changes no picture.
TEST_F(Commands, TellWhatStagesTake)
{
    // Rows of a table: name, share in per cent or -1. Checks that shares add up and milliseconds are numbers above 0.
    const auto stages_of = [](const Outcome& timed) {
        EXPECT_EQ(timed.code, 0) << timed.err;
        EXPECT_EQ(timed.err, "") << "no progress in a pipe";
        std::map<std::string, double> stages;
        std::istringstream rows(timed.out.substr(std::min(timed.out.find("stage   "), timed.out.size())));
        std::string row;
        std::getline(rows, row);
        double milliseconds = 0;
        double shares = 0;
        while (std::getline(rows, row)) {
            const std::string name = row.substr(0, row.find("  "));
            const std::string numbers = row.substr(name.size());
            char sign[2] = "";
            double share = -1;
            double took = -1;
            const int found = std::sscanf(numbers.c_str(), " %lf %lf %1[%]", &took, &share, sign);
            EXPECT_GE(took, 0) << row;
            stages[name] = found == 3 ? share : -1;
            if (found == 3 && name != "chain") {
                milliseconds += took;
                shares += share;
            } else if (name == "chain") {
                EXPECT_NEAR(took, milliseconds, 0.001 * static_cast<double>(stages.size())) << timed.out;
                EXPECT_NEAR(shares, 100, 0.05 * static_cast<double>(stages.size())) << timed.out;
            }
        }
        return stages;
    };
    const auto expect_stages = [&](const std::string& command, const std::set<std::string>& chain,
                                   const std::set<std::string>& apart, const std::string& made) {
        const Outcome timed = run(command);
        EXPECT_NE(timed.out.find(" frames per s; " + made), std::string::npos) << timed.out;
        std::set<std::string> found_in_chain;
        std::set<std::string> found_apart;
        for (const auto& [name, share] : stages_of(timed))
            (share >= 0 ? found_in_chain : found_apart).insert(name);
        std::set<std::string> whole = chain;
        whole.insert({"other", "chain"});
        EXPECT_EQ(found_in_chain, whole) << timed.out;
        EXPECT_EQ(found_apart, apart) << timed.out;
    };
    expect_stages("bmode rf.yml -o timed.png --envelope envelope.npy --frame 1 --median2d --persist 8 --timing --repeat 3",
                  {"scale", "demodulate", "envelope", "compress", "median2d", "persist", "scan conversion"},
                  {"find reference", "frames before", "read", "write envelope", "write"}, "1 frame, each made 3 times");
    expect_success("bmode rf.yml -o once.png --envelope once.npy --frame 1 --median2d --persist 8");
    EXPECT_EQ(content_of(folder / "timed.png"), content_of(folder / "once.png"));
    EXPECT_EQ(content_of(folder / "envelope.npy"), content_of(folder / "once.npy"));
    expect_stages("bmode rf.yml -o picture.png --frames all --timing",
                  {"scale", "demodulate", "envelope", "compress", "scan conversion"}, {"find reference", "read", "write"},
                  "3 frames, each made 10 times");
    expect_refusal("bmode rf.yml -o new.png --repeat 3", "--repeat: expected together with --timing");
    expect_refusal("bmode rf.yml -o new.png --timing --repeat 0", "--repeat: expected a whole number from 1");
}

// Ensembles in any order of the axes give the same maps and pictures.
TEST_F(Commands, PaintFlow)
{
    const std::map<std::string, int> counts = {{"frame", 2}, {"line", 6}, {"sample", 40}, {"firing", 8}, {"component", 2}};
    const auto value = [](std::map<std::string, int>& at) {
        const double phase = 0.3 * at["sample"] + 0.08 * at["line"] * at["firing"] + at["frame"];
        const double part = at["component"] == 0 ? std::cos(phase) : std::sin(phase);
        return static_cast<std::int16_t>(std::lround(500 * part) + 3000 * at["frame"] + 10 * at["line"]);
    };
    const std::string about = "content: iq\ntype: int16\nsampling_frequency: 10 MHz\ncenter_frequency: 5 MHz\n"
                              "pulse_repetition_frequency: 4 kHz\ngeometry: {kind: linear, line_pitch: 0.3 mm}\n";
    const auto record = [&](const std::string& name, const std::vector<std::string>& axes) {
        std::string bytes;
        std::map<std::string, int> at;
        const std::function<void(std::size_t)> store = [&](std::size_t axis) {
            if (axis == axes.size()) {
                const std::int16_t sample = value(at);
                bytes.append(reinterpret_cast<const char*>(&sample), sizeof sample);
                return;
            }
            for (int i = 0; i < counts.at(axes[axis]); ++i) {
                at[axes[axis]] = i;
                store(axis + 1);
            }
        };
        store(0);
        write_file(folder / (name + ".raw"), bytes);
        std::string list;
        std::string shape;
        for (const std::string& axis : axes) {
            list += (list.empty() ? "" : ", ") + axis;
            shape += (shape.empty() ? "" : ", ") + std::to_string(counts.at(axis));
        }
        describe(name, "file: " + name + ".raw\naxes: [" + list + "]\nshape: [" + shape + "]\n" + about);
    };
    record("usual", {"frame", "line", "sample", "firing", "component"});
    record("firing_first", {"frame", "firing", "line", "sample", "component"});
    record("other", {"component", "sample", "firing", "line", "frame"});
    std::map<std::string, std::string> usual;
    for (const std::string name : {"usual", "firing_first", "other"}) {
        expect_success("colour " + name +
                       ".yml -o v.png --power p.png --spread s.png --npy m.npy --frame 1 --firings 7 "
                       "--filter mean --average 1x1 --mix --scale --map variance --baseline -0.9 --power-threshold 3dB "
                       "--tissue-speed 2cm/s");
        for (const char* map : {"m-phase.npy", "m-power.npy", "m-spread.npy", "m-velocity.npy"}) {
            const std::string content = content_of(folder / map);
            EXPECT_EQ(content.size(), 128 + sizeof(float) * 6 * 40) << map;
            EXPECT_EQ(usual.emplace(map, content).first->second, content) << name << ", " << map;
        }
        for (const char* picture : {"v.png", "p.png", "s.png"}) {
            const Outcome equal = run(std::string("verify ") + picture);
            EXPECT_EQ(equal.code, 0) << equal.out << equal.err;
            const std::string pixels = equal.out.substr(equal.out.find("recipe"));
            EXPECT_EQ(usual.emplace(picture, pixels).first->second, pixels) << name << ", " << picture;
        }
    }
    // Line 5 turns by 0.4 radians per firing, which lie above the shifted range: 0.4 / pi - 2 of 30.8 cm/s.
    float velocity = 0;
    std::memcpy(&velocity, usual["m-velocity.npy"].data() + 128 + sizeof velocity * (5 * 40 + 20), sizeof velocity);
    EXPECT_NEAR(velocity, (0.4 / 3.14159265 - 2) * 0.308, 0.01);
    const Outcome recipe = run("info v.png");
    EXPECT_NE(recipe.out.find("Clutter filter: mean\n"), std::string::npos) << recipe.out;
    PngPicture changed = read_png(folder / "v.png");
    for (auto& [keyword, text] : changed.text)
        if (keyword == "Baseline")
            text = "2";
    rewrite("changed.png", changed.image, changed.text);
    expect_refusal("verify changed.png", "Baseline");
    expect_refusal("verify v.png --input missing.yml", "missing.yml");
    EXPECT_EQ(run("verify v.png --input usual.yml").code, 1) << "another input";

    const Outcome filter = run("colour usual.yml --show-filter --filter dct:2");
    EXPECT_EQ(filter.code, 0) << filter.err;
    EXPECT_NE(filter.out.find("response"), std::string::npos) << filter.out;

    std::string bare = about;
    bare.erase(bare.find("pulse_repetition"), std::string("pulse_repetition_frequency: 4 kHz\n").size());
    describe("bare", "file: usual.raw\naxes: [frame, line, sample, firing, component]\nshape: [2, 6, 40, 8, 2]\n" + bare);
    expect_success("colour bare.yml -o p.png --unit rad");
    expect_success("colour bare.yml -o p.png --pulse-repetition-frequency 4kHz");
    const std::pair<std::string, const char*> cases[] = {
        {"colour usual.yml", "-o"},
        {"colour bare.yml -o q.png", "pulse_repetition_frequency"},
        {"colour rf.yml -o q.png", "content rf"},
        {"colour iq.yml -o q.png", "firing"},
        {"colour usual.yml -o q.jpg", ".png"},
        {"colour usual.yml -o q.png --power q.png", "two outputs"},
        {"colour usual.yml --npy q.txt", ".npy"},
        {"colour usual.yml -o none/q.png", "none"},
        {"colour usual.yml -o q.png --frame 2", "--frame"},
        {"colour usual.yml -o q.png --firings 9", "--firings"},
        {"colour usual.yml -o q.png --firings 2", "--firings"},
        {"colour usual.yml -o q.png --filter poly:7", "--filter"},
        {"colour usual.yml -o q.png --filter fir", "--filter"},
        {"colour usual.yml -o q.png --filter none --mix", "--mix"},
        {"colour usual.yml -o q.png --average 2x3", "--average"},
        {"colour usual.yml -o q.png --average 3", "--average"},
        {"colour usual.yml -o q.png --map rainbow", "--map"},
        {"colour usual.yml -o q.png --unit knots", "--unit"},
        {"colour usual.yml -o q.png --baseline 1.5", "--baseline"},
        {"colour usual.yml -o q.png --power-threshold -3dB", "--power-threshold"},
        {"colour usual.yml -o q.png --spread-threshold 0", "--spread-threshold"},
        {"colour usual.yml -o q.png --tissue-speed 1m/s", "--tissue-speed"},
        {"colour usual.yml -o q.png --tissue-grey 256", "--tissue-grey"},
        {"colour usual.yml -o q.png --center-frequency 5", "--center-frequency"},
        {"colour usual.yml -o q.png --width 0", "--width"},
        {"colour usual.yml -o usual.raw", ".png"},
    };
    for (const auto& [arguments, what] : cases)
        expect_refusal(arguments, what);
}

TEST_F(Commands, RefuseInOneLine)
{
    fs::create_directory(folder / "sub.png");
    write_file(folder / "text.yml", "no: such\nthing: here\n");
    write_file(folder / "short.raw", "too few");
    describe("short", "file: short.raw\ncontent: rf\ntype: int16\naxes: [line, sample]\nshape: [40, 500]\n"
                      "sampling_frequency: 40 MHz\ncenter_frequency: 5 MHz\ngeometry: {kind: linear, line_pitch: 0.3 mm}\n");
    const std::pair<std::string, const char*> cases[] = {
        {"", "subcommand"},
        {"nonsense", "--help"},
        {"bmode", "RECORDING"},
        {"bmode rf.yml", "-o"},
        {"bmode missing.yml -o p.png", "missing.yml"},
        {"bmode text.yml -o p.png", "text.yml"},
        {"bmode short.yml -o p.png", "short.raw"},
        {"bmode . -o p.png", "a recording"},
        {"bmode rf.yml -o p.jpg", ".png"},
        {"bmode rf.yml -o sub.png", "folder"},
        {"bmode rf.yml -o none/p.png", "none"},
        {"bmode rf.yml -o rf.raw/p.png", "rf.raw"},
        {"bmode rf.yml -o p.png --envelope none/e.npy", "none"},
        {"bmode rf.yml -o p.png --envelope e.txt", ".npy"},
        {"bmode grey.yml -o p.png --envelope e.npy", "--envelope"},
        {"bmode grey.yml -o p.png --taps 3", "grey"},
        {"bmode iq.yml -o p.png --taps 3", "--taps"},
        {"bmode iq.yml -o p.png --center-frequency 5MHz", "--center-frequency"},
        {"bmode picture.yml -o p.png --scale", "--scale"},
        {"bmode picture.yml -o p.png --smooth", "--smooth"},
        {"bmode picture.yml -o p.png --sound-speed 1500", "--sound-speed"},
        {"bmode rf.yml -o p.png --sound-speed 0", "--sound-speed"},
        {"bmode rf.yml -o p.png --sound-speed 1540MHz", "--sound-speed"},
        {"bmode grey.yml -o p.png --upsample", "RF"},
        {"bmode rf.yml -o p.png --upsample=3", "--upsample"},
        {"bmode iq.yml -o p.png --interpolate 2", "RF"},
        {"bmode rf.yml -o p.png --interpolate 3", "--interpolate"},
        {"bmode rf.yml -o p.png --interpolate 1", "--interpolate"},
        {"bmode rf.yml -o p.png --harmonic sum", "2 firings"},
        {"bmode ensemble.yml -o p.png --harmonic sum", "opposite polarity"},
        {"bmode pairs.yml -o p.png --harmonic difference", "--harmonic"},
        {"bmode pairs.yml -o p.png --ramp 2mm:5mm", "--ramp"},
        {"bmode pairs.yml -o p.png --harmonic blend --ramp 2mm", "--ramp"},
        {"bmode pairs.yml -o p.png --harmonic blend --ramp 5mm:2mm", "--ramp"},
        {"bmode pairs.yml -o p.png --harmonic blend --ramp 2mm:1m", "--ramp"},
        {"bmode pairs.yml -o p.png --harmonic blend --percent 101", "--percent"},
        {"bmode rf.yml -o p.png --frame 3", "--frame"},
        {"bmode rf.yml -o p.png --frame -1", "--frame"},
        {"bmode rf.yml -o p.png --frame 1 --frames all", "--frame"},
        {"bmode rf.yml -o p.png --frames 2", "--frames"},
        {"bmode rf.yml -o p.png --frames 2:2", "--frames"},
        {"bmode rf.yml -o p.png --frames 0:4", "--frames"},
        {"bmode rf.yml -o p.png --dynamic-range 0", "--dynamic-range"},
        {"bmode rf.yml -o p.png --dynamic-range nan", "--dynamic-range"},
        {"bmode rf.yml -o p.png --dynamic-range 60MHz", "--dynamic-range"},
        {"bmode rf.yml -o p.png --reference inf", "--reference"},
        {"bmode rf.yml -o p.png --reference -3", "--reference"},
        {"bmode rf.yml -o p.png --taps 4", "--taps"},
        {"bmode rf.yml -o p.png --taps 12 --decimation 8", "--taps"},
        {"bmode rf.yml -o p.png --taps 32 --general", "--taps"},
        {"bmode rf.yml -o p.png --compare --general", "--compare"},
        {"bmode rf.yml -o p.png --compare --decimation 3", "--compare"},
        {"bmode iq.yml -o p.png --compare", "--compare"},
        {"bmode grey.yml -o p.png --general", "--general"},
        {"bmode rf.yml -o p.png --taps 99999999999", "--taps"},
        {"bmode rf.yml -o p.png --decimation 501", "--decimation"},
        {"bmode rf.yml -o p.png --bandwidth 30MHz", "bandwidth"},
        {"bmode rf.yml -o p.png --bandwidth 1e400", "--bandwidth"},
        {"bmode rf.yml -o p.png --center-frequency 20MHz", "center frequency"},
        {"bmode rf.yml -o p.png --width 0", "--width"},
        {"bmode rf.yml -o p.png --width 100000", "width"},
        {"bmode rf.yml -o p.png --width 12.5", "--width"},
        {"bmode rf.yml -o p.png --no-such-option", "--no-such-option"},
        {"bmode rf.yml -o p.png --data nowhere", "rf.raw"},
        {"info missing.npy", "missing.npy"},
        {"info .", "folder"},
        {"verify missing.png", "missing.png"},
        {"verify rf.yml", "PNG"},
#ifndef _WIN32
        {"verify \"$(printf 'two\\nlines.png')\"", "lines.png"},
#endif
    };
    for (const auto& [arguments, what] : cases)
        expect_refusal(arguments, what);

    // An input is never replaced.
    fs::rename(folder / "rf.raw", folder / "rf.png");
    describe("trap", "file: rf.png\ncontent: rf\ntype: int16\naxes: [line, sample]\nshape: [120, 500]\n"
                     "sampling_frequency: 40 MHz\ncenter_frequency: 5 MHz\ngeometry: {kind: linear, line_pitch: 0.3 mm}\n");
    const std::string rf = content_of(folder / "rf.png");
    expect_refusal("bmode trap.yml -o rf.png", "recording itself");
    EXPECT_EQ(content_of(folder / "rf.png"), rf);
}

#ifndef _WIN32 // file size limits, signals, pipes

TEST_F(Commands, LeaveNothingHalfWritten)
{
    write_file(folder / "picture.png", "of yesterday");
    write_file(folder / "cine-0001.png", "of yesterday");
    // No room for more than a few kilobytes.
    for (const char* arguments :
         {"bmode rf.yml -o picture.png --width 600", "bmode rf.yml -o cine.png --frames all --width 600",
          "bmode rf.yml -o picture.png --width 16 --envelope envelope.npy"})
        expect_refusal(arguments, "cannot be written", "ulimit -f 8;");
    EXPECT_EQ(content_of(folder / "picture.png"), "of yesterday");
    EXPECT_EQ(content_of(folder / "cine-0001.png"), "of yesterday");

    // A series that is interrupted: either all of it is there or nothing.
    describe("long", "file: long.raw\ncontent: bmode\ntype: uint8\naxes: [frame, row, column]\nshape: [400, 512, 512]\n"
                     "geometry: {kind: picture}\n");
    fs::resize_file((write_file(folder / "long.raw", ""), folder / "long.raw"), 400 * 512 * 512);
    const std::set<std::string> before = files();
    const Outcome interrupted =
        run("bmode long.yml -o long.png --frames all", "", "& child=$!; sleep 0.3; kill -TERM $child; wait $child 2>/dev/null");
    EXPECT_EQ(interrupted.code, 128 + SIGTERM);
    EXPECT_EQ(files(), before);

    const int status =
        std::system(("cd '" + folder.string() + "' && '" + program() + "' info rf.yml >/dev/full 2>/dev/null").c_str());
    EXPECT_EQ(WEXITSTATUS(status), 2) << "messages that cannot be written";
}

TEST_F(Commands, FollowLinksAndLeavePipesAlone)
{
    write_file(folder / "real.png", "old");
    fs::create_symlink("real.png", folder / "link.png");
    expect_success("bmode rf.yml -o link.png --width 64");
    EXPECT_TRUE(fs::is_symlink(folder / "link.png"));
    EXPECT_TRUE(is_png(folder / "real.png"));
    ASSERT_EQ(mkfifo((folder / "pipe.png").c_str(), 0600), 0);
    fs::create_symlink("pipe.png", folder / "to_pipe.png");
    for (const char* name : {"pipe.png", "to_pipe.png"})
        expect_refusal(std::string("bmode rf.yml -o ") + name, "pipe");
    EXPECT_TRUE(fs::is_fifo(folder / "pipe.png"));
}

#endif

} // namespace
