// A cine, filtered frame by frame: the median of five frames, persistence, 3x3 median.
#include "chains.h"

#include "utils_sse.h"

#include <algorithm>

#if UTILS_SSE_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace bench {

using Five = void (*)(unsigned char*, const unsigned char*, const unsigned char*, const unsigned char*, const unsigned char*,
                      const unsigned char*, int);
#define UTILS_SSE_PLAIN(maker)                                                                                                 \
    void median_of_five_##maker(unsigned char*, const unsigned char*, const unsigned char*, const unsigned char*,              \
                                const unsigned char*, const unsigned char*, int);
#include "plain_makers.inc"
#undef UTILS_SSE_PLAIN

namespace {

// A plain loop takes the median of whole lines; null: not a plain loop.
Five plain_median(const std::string& maker)
{
#define UTILS_SSE_PLAIN(name)                                                                                                  \
    if (maker == #name)                                                                                                        \
        return median_of_five_##name;
#include "plain_makers.inc"
#undef UTILS_SSE_PLAIN
    return nullptr;
}

constexpr int kSide = 512;
constexpr int kPixels = kSide * kSide;
constexpr int kFrames = 16; // played round and round
constexpr int kBlock = 16;  // lines
constexpr int kShown = 8;   // sixteenths that the picture shown last gets

// Grey blobs that move, with noise and with impulses.
Array<unsigned char> cine()
{
    const Array<unsigned char> pixels(kFrames * kPixels);
    Noise noise;
    for (int frame = 0; frame < kFrames; ++frame)
        for (int y = 0; y < kSide; ++y)
            for (int x = 0; x < kSide; ++x) {
                const int base = ((x + 2 * frame) / 8 * 37 + y / 8 * 91) % 160;
                const double impulse = noise() > 0.96 ? 90 : 0;
                pixels[static_cast<std::size_t>(frame * kPixels + y * kSide + x)] =
                    static_cast<unsigned char>(std::clamp(base + 40 + 20 * noise() + impulse, 0.0, 255.0));
            }
    return pixels;
}

// Frames the newest of which is `frame`, the oldest first, from a line on.
struct LastFive
{
    const unsigned char* of[5];
    LastFive(const Array<unsigned char>& pixels, const Piece& piece)
    {
        for (int k = 0; k < 5; ++k)
            of[k] = pixels.data() + (piece.frame + kFrames - 4 + k) % kFrames * kPixels + piece.first * kSide;
    }
};

struct Surroundings
{
    int first;
    int end;
    explicit Surroundings(const Piece& piece) : first(std::max(0, piece.first - 1)), end(std::min(kSide, piece.end + 1)) {}
};

struct State
{
    Array<unsigned char> frames;
    Array<unsigned char> median{kPixels}, shown{kPixels};
    Array<unsigned char> result[2] = {Array<unsigned char>(kPixels), Array<unsigned char>(kPixels)};
    int parts = 1; // of which the result is made

    void reset() { std::fill(shown.begin(), shown.end(), static_cast<unsigned char>(0)); }
    // Without the border, which the medians treat each in their own way. Two threads leave a half each.
    std::vector<unsigned char> picture() const
    {
        std::vector<unsigned char> all;
        for (int y = 1; y < kSide - 1; ++y) {
            const unsigned char* const line = result[parts == 2 && y >= kSide / 2 ? 1 : 0].data() + y * kSide;
            all.insert(all.end(), line + 1, line + kSide - 1);
        }
        return all;
    }
};

Candidate filtered_by(const Maker& maker, const Array<unsigned char>& frames)
{
    using Spatial = void (*)(unsigned char*, const unsigned char*, int, int, int);
    const Five plain = plain_median(maker.name);
    const Five five = plain != nullptr ? plain : maker.function("MedianFilter (five frames of bytes)", Five());
    const int step = plain != nullptr ? kPixels : 15; // the library's tail alone takes the median of five
    const auto persist = maker.function("PersistImage", &CUtils_SSE::PersistImage);
    const auto median = maker.function("MedianFilter2DWin3 (bytes)", Spatial());
    const auto on = std::make_shared<State>(State{frames});
    Candidate candidate;
    candidate.name = maker.name;
    candidate.block = kBlock;
    candidate.stages = {
        {"median of five",
         [=](const Piece& p) {
             const LastFive f(on->frames, p);
             unsigned char* const to = on->median.data() + p.first * kSide;
             const int n = (p.end - p.first) * kSide;
             for (int i = 0; i < n; i += step)
                 five(to + i, f.of[0] + i, f.of[1] + i, f.of[2] + i, f.of[3] + i, f.of[4] + i, std::min(step, n - i));
         }},
        {"persistence",
         [=](const Piece& p) {
             unsigned char* const shown = on->shown.data() + p.first * kSide;
             persist(shown, on->median.data() + p.first * kSide, shown, kShown, 16 - kShown, (p.end - p.first) * kSide);
         }},
        {"median 3x3",
         [=](const Piece& p) {
             const Surroundings around(p);
             if (p.part == 0)
                 on->parts = p.end == kSide ? 1 : 2;
             median(on->result[p.part].data() + around.first * kSide, on->shown.data() + around.first * kSide, kSide, kSide,
                    around.end - around.first);
         },
         true},
    };
    candidate.reset = [=] { on->reset(); };
    candidate.picture = [=] { return on->picture(); };
    return candidate;
}

#if UTILS_SSE_BENCH_OPENCV
Candidate filtered_by_opencv(const Array<unsigned char>& frames)
{
    struct OpenCvState : State
    {
        explicit OpenCvState(const Array<unsigned char>& f) : State{f} {}
        cv::Mat scratch[2][4];
    };
    const auto on = std::make_shared<OpenCvState>(frames);
    const auto lines_of = [](const unsigned char* pixels, int first, int end) {
        return cv::Mat(end - first, kSide, CV_8U, const_cast<unsigned char*>(pixels) + first * kSide);
    };
    Candidate candidate;
    candidate.name = "OpenCV";
    candidate.block = kBlock;
    candidate.levels = 2; // it rounds where persistence rounds down, again and again
    candidate.stages = {
        {"median of five",
         [=](const Piece& p) {
             const LastFive last(on->frames, p);
             cv::Mat f[5];
             for (int k = 0; k < 5; ++k)
                 f[k] = lines_of(last.of[k], 0, p.end - p.first);
             cv::Mat(&s)[4] = on->scratch[p.part];
             cv::Mat to = lines_of(on->median.data(), p.first, p.end);
             // The middle one of the fifth, the larger of the two least and the lesser of the two greatest.
             cv::min(f[0], f[1], s[0]);
             cv::max(f[0], f[1], s[1]);
             cv::min(f[2], f[3], s[2]);
             cv::max(f[2], f[3], s[3]);
             cv::max(s[0], s[2], s[0]);
             cv::min(s[1], s[3], s[1]);
             cv::min(s[0], s[1], s[2]);
             cv::max(s[0], s[1], s[3]);
             cv::min(s[3], f[4], s[3]);
             cv::max(s[2], s[3], to);
         }},
        {"persistence",
         [=](const Piece& p) {
             cv::Mat shown = lines_of(on->shown.data(), p.first, p.end);
             cv::addWeighted(shown, kShown / 16.0, lines_of(on->median.data(), p.first, p.end), 1 - kShown / 16.0, 0, shown);
         }},
        {"median 3x3",
         [=](const Piece& p) {
             const Surroundings around(p);
             if (p.part == 0)
                 on->parts = p.end == kSide ? 1 : 2;
             cv::Mat to = lines_of(on->result[p.part].data(), around.first, around.end);
             cv::medianBlur(lines_of(on->shown.data(), around.first, around.end), to, 3);
         },
         true},
    };
    candidate.reset = [=] { on->reset(); };
    candidate.picture = [=] { return on->picture(); };
    return candidate;
}
#endif

} // namespace

void add_cine_chains(std::vector<Chain>& chains)
{
    const Array<unsigned char> frames = cine();
    Chain chain{"Cine filter, 512 x 512", kSide, kPixels, {}, "cine", {}};
    for (const Maker& maker : makers())
        chain.candidates.push_back(filtered_by(maker, frames));
#if UTILS_SSE_BENCH_OPENCV
    chain.candidates.push_back(filtered_by_opencv(frames));
#endif
    chain.write_inputs = [frames](const std::string& prefix) {
        write_npy(prefix + "frames.npy", "|u1", {kFrames, kSide, kSide}, frames);
        const double numbers[] = {kShown};
        write_npy(prefix + "numbers.npy", "<f8", {1}, numbers, sizeof numbers);
    };
    chains.push_back(chain);
}

} // namespace bench
