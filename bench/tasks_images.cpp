// Frames of 512 x 512 pixels: medians, averages, persistence, the 2x2 box, transposition.
#include "tasks.h"

#include "utils_sse.h"

#include <algorithm>

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

// work(maker, sources, dst) does it once; `arrays` are read or written by it.
template <class Work>
Task blend(const std::string& name, std::size_t pixels, double tolerance, std::size_t arrays, const Work& work)
{
    Task task{name, "frame", 1, tolerance, {}};
    for (const Maker& maker : makers()) {
        const Sources& in = sources(pixels);
        const Array<unsigned char> dst = results_of_all<unsigned char>(pixels);
        const auto once = work(maker);
        task.contenders.push_back(
            {maker.name, [=] { once(in, dst.data(), static_cast<int>(pixels)); }, [=] { return dst.numbers(); }});
    }
    task.contenders.push_back(copy_of(arrays * pixels));
    return task;
}

#if UTILS_SSE_BENCH_OPENCV
Contender add_weighted(std::size_t pixels, double weight_a)
{
    const Sources& in = sources(pixels);
    const Array<unsigned char> dst = results_of_all<unsigned char>(pixels);
    const int side = static_cast<int>(pixels / kSide);
    return {"OpenCV",
            [=] {
                cv::Mat to(side, kSide, CV_8UC1, dst.data());
                cv::addWeighted(cv::Mat(side, kSide, CV_8UC1, in.a.data()), weight_a,
                                cv::Mat(side, kSide, CV_8UC1, in.b.data()), 1 - weight_a, 0, to);
            },
            [=] { return dst.numbers(); }};
}
#endif
#if UTILS_SSE_BENCH_LIBYUV
Contender interpolate_plane(std::size_t pixels, int weight_b)
{
    const Sources& in = sources(pixels);
    const Array<unsigned char> dst = results_of_all<unsigned char>(pixels);
    return {"libyuv",
            [=] {
                libyuv::InterpolatePlane(in.a.data(), kSide, in.b.data(), kSide, dst.data(), kSide, kSide,
                                         static_cast<int>(pixels / kSide), weight_b);
            },
            [=] { return dst.numbers(); }};
}
#endif

void add_blends(std::vector<Task>& tasks, const std::string& where, std::size_t pixels)
{
    const double one = 1.01 / 254; // others round where the library truncates
    Task weighted = blend("Blend of two frames, 30 %" + where, pixels, one, 3, [](const Maker& maker) {
        const auto function = maker.function("WeightedAverage", &CUtils_SSE::WeightedAverage);
        return [=](const Sources& in, unsigned char* dst, int n) { function(dst, in.a.data(), in.b.data(), n, 30); };
    });
    Task persistence = blend("Persistence, 12 and 4 sixteenths" + where, pixels, one, 3, [](const Maker& maker) {
        const auto function = maker.function("PersistImage", &CUtils_SSE::PersistImage);
        return [=](const Sources& in, unsigned char* dst, int n) { function(in.a.data(), in.b.data(), dst, 12, 4, n); };
    });
    Task two = blend("Mean of two frames" + where, pixels, one, 5, [](const Maker& maker) {
        const auto function = maker.function("TemporalAverage2", &CUtils_SSE::TemporalAverage2);
        return [=](const Sources& in, unsigned char* dst, int n) {
            std::copy(in.a.data(), in.a.data() + n, dst); // it works in place: the copy is part of what is timed
            function(dst, in.b.data(), n);
        };
    });
    Task four = blend("Mean of four frames" + where, pixels, 0, 7, [](const Maker& maker) {
        const auto function = maker.function("TemporalAverage4", &CUtils_SSE::TemporalAverage4);
        return [=](const Sources& in, unsigned char* dst, int n) {
            std::copy(in.d.data(), in.d.data() + n, dst);
            function(dst, in.a.data(), in.b.data(), in.c.data(), n);
        };
    });
    Task median = blend("Median of three frames" + where, pixels, 0, 4, [](const Maker& maker) {
        using Filter = void (*)(unsigned char*, const unsigned char*, const unsigned char*, const unsigned char*, int);
        const auto function = maker.function("MedianFilter (three frames of bytes)", Filter());
        return [=](const Sources& in, unsigned char* dst, int n) { function(dst, in.a.data(), in.b.data(), in.c.data(), n); };
    });
#if UTILS_SSE_BENCH_OPENCV
    weighted.contenders.push_back(add_weighted(pixels, 1 - 76 / 256.0));
    persistence.contenders.push_back(add_weighted(pixels, 0.75));
    two.contenders.push_back(add_weighted(pixels, 0.5));
#endif
#if UTILS_SSE_BENCH_LIBYUV
    weighted.contenders.push_back(interpolate_plane(pixels, 76));
    persistence.contenders.push_back(interpolate_plane(pixels, 64));
    two.contenders.push_back(interpolate_plane(pixels, 128));
#endif
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
