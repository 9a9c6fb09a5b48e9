// Frames of 512 x 512 pixels: medians, averages, persistence, the 2x2 box, transposition.
#include "tasks.h"

#include "utils_sse.h"

#include <algorithm>
#include <map>

#if UTILS_SSE_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif
#if UTILS_SSE_BENCH_LIBYUV
#include <libyuv.h>
#endif

namespace bench {
namespace {

constexpr int kSide = 512;
constexpr std::size_t kFrame = std::size_t{kSide} * kSide;

template <class T>
Array<T> frame(std::size_t size = kFrame, unsigned which = 0)
{
    const Array<T> pixels(size);
    Noise noise;
    for (unsigned i = 0; i < which; ++i)
        noise();
    for (T& pixel : pixels)
        pixel = static_cast<T>(127.5 + 127 * noise());
    return pixels;
}

// What all methods define alike: without `border` pixels at each edge. (Of float images with an even width the library leaves
// three columns unfiltered.)
template <class T>
std::vector<double> interior(const Array<T>& pixels, int border)
{
    std::vector<double> all;
    for (int y = border; y < kSide - border; ++y)
        for (int x = border; x < kSide - border; ++x)
            all.push_back(static_cast<double>(pixels[static_cast<std::size_t>(y * kSide + x)]));
    return all;
}

// --- spatial medians ---

template <class T, class Filter>
void add_median(std::vector<Task>& tasks, const std::string& kind, const char* title, Filter, [[maybe_unused]] int cv_depth,
                int size)
{
    const std::string window = std::to_string(size) + "x" + std::to_string(size);
    Task task{"Median " + window + " of " + kind + ", 512 x 512", "frame", 1, 0, {}};
    const Array<T> src = frame<T>();
    for (const Maker& maker : makers()) {
        const auto function = maker.function(title, Filter());
        const Array<T> dst = results_of_all<T>(kFrame);
        task.contenders.push_back(
            {maker.name, [=] { function(dst.data(), src.data(), kSide, kSide, kSide); }, [=] { return interior(dst, 3); }});
    }
#if UTILS_SSE_BENCH_OPENCV
    const Array<T> dst = results_of_all<T>(kFrame);
    task.contenders.push_back({"OpenCV",
                               [=] {
                                   const cv::Mat from(kSide, kSide, cv_depth, src.data());
                                   cv::Mat to(kSide, kSide, cv_depth, dst.data());
                                   cv::medianBlur(from, to, size);
                               },
                               [=] { return interior(dst, 3); }});
#endif
    tasks.push_back(task);
}

// --- blends of frames ---

struct Sources
{
    std::size_t pixels;
    Array<unsigned char> a = frame<unsigned char>(pixels, 0), b = frame<unsigned char>(pixels, 1);
    Array<unsigned char> c = frame<unsigned char>(pixels, 2), d = frame<unsigned char>(pixels, 3);
};

// The same frames for everybody.
const Sources& sources(std::size_t pixels)
{
    static std::map<std::size_t, Sources> frames;
    return frames.try_emplace(pixels, Sources{pixels}).first->second;
}

// A contender whose once(sources, dst) makes dst of the sources; of dst itself as well if it starts as one of them.
template <class Once>
Contender blending(const std::string& name, std::size_t pixels, Array<unsigned char> Sources::*start, const Once& once)
{
    const Sources& in = sources(pixels);
    const Array<unsigned char> dst = results_of_all<unsigned char>(pixels);
    return {name, [=] { once(in, dst.data()); },
            [=] {
                if (start != nullptr)
                    std::copy((in.*start).begin(), (in.*start).end(), dst.data());
                once(in, dst.data());
                return dst.numbers();
            }};
}

// work(maker) returns what does it once; `arrays` are read or written by it.
template <class Work>
Task blend(const std::string& name, std::size_t pixels, double tolerance, std::size_t arrays,
           Array<unsigned char> Sources::*start, const Work& work)
{
    Task task{name, "frame", 1, tolerance, {}};
    for (const Maker& maker : makers()) {
        const auto once = work(maker);
        task.contenders.push_back(blending(maker.name, pixels, start, [=](const Sources& in, unsigned char* dst) {
            once(in, dst, static_cast<int>(pixels));
        }));
    }
    task.contenders.push_back(copy_of(arrays * pixels));
    return task;
}

// Others weigh two frames; the first may be dst.
void add_others(Task& task, [[maybe_unused]] std::size_t pixels, [[maybe_unused]] Array<unsigned char> Sources::*start,
                [[maybe_unused]] int weight_b)
{
    [[maybe_unused]] const int rows = static_cast<int>(pixels / kSide);
    [[maybe_unused]] const auto first = [start](const Sources& in, unsigned char* dst) { return start ? dst : in.a.data(); };
#if UTILS_SSE_BENCH_OPENCV
    task.contenders.push_back(blending("OpenCV", pixels, start, [=](const Sources& in, unsigned char* dst) {
        cv::Mat to(rows, kSide, CV_8UC1, dst);
        cv::addWeighted(cv::Mat(rows, kSide, CV_8UC1, first(in, dst)), 1 - weight_b / 256.0,
                        cv::Mat(rows, kSide, CV_8UC1, in.b.data()), weight_b / 256.0, 0, to);
    }));
#endif
#if UTILS_SSE_BENCH_LIBYUV
    task.contenders.push_back(blending("libyuv", pixels, start, [=](const Sources& in, unsigned char* dst) {
        libyuv::InterpolatePlane(first(in, dst), kSide, in.b.data(), kSide, dst, kSide, kSide, rows, weight_b);
    }));
#endif
}

void add_blends(std::vector<Task>& tasks, const std::string& where, std::size_t pixels)
{
    const double one = 1.01 / 254; // others round where the library truncates
    Task weighted = blend("Blend of two frames, 30 %" + where, pixels, one, 3, nullptr, [](const Maker& maker) {
        const auto function = maker.function("WeightedAverage", &CUtils_SSE::WeightedAverage);
        return [=](const Sources& in, unsigned char* dst, int n) { function(dst, in.a.data(), in.b.data(), n, 30); };
    });
    Task persistence = blend("Persistence, 12 and 4 sixteenths" + where, pixels, one, 3, nullptr, [](const Maker& maker) {
        const auto function = maker.function("PersistImage", &CUtils_SSE::PersistImage);
        return [=](const Sources& in, unsigned char* dst, int n) { function(in.a.data(), in.b.data(), dst, 12, 4, n); };
    });
    Task two = blend("Mean of two frames, in place" + where, pixels, one, 3, &Sources::a, [](const Maker& maker) {
        const auto function = maker.function("TemporalAverage2", &CUtils_SSE::TemporalAverage2);
        return [=](const Sources& in, unsigned char* dst, int n) { function(dst, in.b.data(), n); };
    });
    Task four = blend("Mean of four frames, in place" + where, pixels, 0, 5, &Sources::d, [](const Maker& maker) {
        const auto function = maker.function("TemporalAverage4", &CUtils_SSE::TemporalAverage4);
        return [=](const Sources& in, unsigned char* dst, int n) { function(dst, in.a.data(), in.b.data(), in.c.data(), n); };
    });
    Task median = blend("Median of three frames" + where, pixels, 0, 4, nullptr, [](const Maker& maker) {
        using Filter = void (*)(unsigned char*, const unsigned char*, const unsigned char*, const unsigned char*, int);
        const auto function = maker.function("MedianFilter (three frames of bytes)", Filter());
        return [=](const Sources& in, unsigned char* dst, int n) { function(dst, in.a.data(), in.b.data(), in.c.data(), n); };
    });
    add_others(weighted, pixels, nullptr, 76);
    add_others(persistence, pixels, nullptr, 64);
    add_others(two, pixels, &Sources::a, 128);
    tasks.insert(tasks.end(), {weighted, persistence, two, four, median});
}

// --- the 2x2 box, transposition ---

Task box()
{
    Task task{"2x2 box, 512 x 512", "frame", 1, 1.01 / 248, {}};
    const Array<unsigned char> src = frame<unsigned char>();
    for (const Maker& maker : makers()) {
        const auto function = maker.function("Filter2x2", &CUtils_SSE::Filter2x2);
        const Array<unsigned char> dst = results_of_all<unsigned char>(kFrame);
        task.contenders.push_back(
            {maker.name, [=] { function(dst.data(), src.data(), kSide, kSide); }, [=] { return interior(dst, 1); }});
    }
#if UTILS_SSE_BENCH_OPENCV
    const Array<unsigned char> dst = results_of_all<unsigned char>(kFrame);
    task.contenders.push_back({"OpenCV",
                               [=] {
                                   cv::Mat to(kSide, kSide, CV_8UC1, dst.data());
                                   cv::blur(cv::Mat(kSide, kSide, CV_8UC1, src.data()), to, cv::Size(2, 2), cv::Point(0, 0));
                               },
                               [=] { return interior(dst, 1); }});
#endif
    return task;
}

Task transposition()
{
    Task task{"Transposition, 512 x 512", "frame", 1, 0, {}};
    const Array<unsigned char> src = frame<unsigned char>();
    const Array<unsigned char> staging(1024 * kSide);
    for (const Maker& maker : makers()) {
        const auto function = maker.function("TransposeImage", &CUtils_SSE::TransposeImage);
        const Array<unsigned char> dst = results_of_all<unsigned char>(kFrame);
        task.contenders.push_back({maker.name, [=] { function(src.data(), kSide, kSide, staging.data(), dst.data()); },
                                   [=] { return dst.numbers(); }});
    }
#if UTILS_SSE_BENCH_OPENCV
    const Array<unsigned char> to_cv = results_of_all<unsigned char>(kFrame);
    task.contenders.push_back({"OpenCV",
                               [=] {
                                   cv::Mat to(kSide, kSide, CV_8UC1, to_cv.data());
                                   cv::transpose(cv::Mat(kSide, kSide, CV_8UC1, src.data()), to);
                               },
                               [=] { return to_cv.numbers(); }});
#endif
#if UTILS_SSE_BENCH_LIBYUV
    const Array<unsigned char> to_yuv = results_of_all<unsigned char>(kFrame);
    task.contenders.push_back({"libyuv", [=] { libyuv::TransposePlane(src.data(), kSide, to_yuv.data(), kSide, kSide, kSide); },
                               [=] { return to_yuv.numbers(); }});
#endif
    return task;
}

} // namespace

void add_image_tasks(std::vector<Task>& tasks)
{
#if UTILS_SSE_BENCH_OPENCV
    cv::setNumThreads(1); // everybody has one core
    constexpr int depths[] = {CV_8UC1, CV_16SC1, CV_32FC1};
#else
    constexpr int depths[] = {0, 0, 0};
#endif
    using Bytes = void (*)(unsigned char*, const unsigned char*, int, int, int);
    using Floats = void (*)(float*, const float*, int, int, int);
    using Shorts = void (*)(short*, short*, int, int, int);
    add_median<unsigned char>(tasks, "bytes", "MedianFilter2DWin3 (bytes)", Bytes(), depths[0], 3);
    add_median<short>(tasks, "16 bits", "MedianFilter2DWin3Short", Shorts(), depths[1], 3);
    add_median<float>(tasks, "floats", "MedianFilter2DWin3 (floats)", Floats(), depths[2], 3);
    add_median<unsigned char>(tasks, "bytes", "MedianFilter2DWin5 (bytes)", Bytes(), depths[0], 5);
    add_median<short>(tasks, "16 bits", "MedianFilter2DWin5Short", Shorts(), depths[1], 5);
    add_median<float>(tasks, "floats", "MedianFilter2DWin5 (floats)", Floats(), depths[2], 5);
    add_blends(tasks, ", 512 x 512", kFrame);
    add_blends(tasks, ", 64 MB, in memory", 256 * kFrame);
    tasks.push_back(box());
    tasks.push_back(transposition());
}

} // namespace bench
