// Motion between frames: a block of 33 x 32 pixels sought among 121 neighbours, and differences of frames.
#include "tasks.h"

#include "utils_sse.h"

#include <algorithm>
#include <cmath>
#include <cstring>

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
constexpr int kHalf = 16;
constexpr int kHeight = 2 * kHalf + 1;
constexpr int kWidth = 32;
constexpr int kReach = 5; // of the fine search
constexpr int kRow = 200; // where the block is found, 3 rows below and 2 columns beside the start
constexpr int kColumn = 300;

struct Search
{
    Array<unsigned char> image{kSide * kSide}, reference{kHeight * kWidth}, work{kHeight * kWidth}, best{8};
    Array<unsigned short> rows{8}, columns{8}, found_rows{8}, found_columns{8};
    Array<int> scratch{4}, slots{1};
    float mean = 0;
    float deviation = 0;

    Search()
    {
        Noise noise;
        for (unsigned char& pixel : image)
            pixel = static_cast<unsigned char>(127 + 100 * noise());
        double sum = 0;
        double squares = 0;
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                const unsigned char pixel = image[static_cast<std::size_t>((kRow + y) * kSide + kColumn + x)];
                reference[static_cast<std::size_t>(y * kWidth + x)] = pixel;
                sum += pixel;
                squares += pixel * pixel;
            }
        mean = static_cast<float>(sum / (kHeight * kWidth));
        deviation = 1.01f * static_cast<float>(std::sqrt(squares / (kHeight * kWidth) - std::pow(sum / (kHeight * kWidth), 2)));
        rows[1] = kRow - 3;
        columns[1] = kColumn - 2;
    }
};

Task fine_search()
{
    Task task{"Fine search of a 33 x 32 block, 121 candidates", "candidate", 121, 0, {}};
    for (const Maker& maker : makers()) {
        const auto function = maker.function("FineCorrelation", &CUtils_SSE::FineCorrelation);
        const Search s;
        task.contenders.push_back({maker.name,
                                   [=] {
                                       s.best[1] = 0;
                                       function(s.image.data(), s.rows.data(), s.columns.data(), s.found_rows.data(),
                                                s.found_columns.data(), 1, s.slots.data(), s.work.data(), s.reference.data(),
                                                s.best.data(), kHalf, kSide, kSide, s.scratch.data(), kWidth, s.deviation,
                                                s.mean, 100, 0);
                                   },
                                   [=] {
                                       return std::vector<double>{s.found_rows[1] - double{kHalf}, s.found_columns[1] - 4.0};
                                   }});
    }
#if UTILS_SSE_BENCH_OPENCV
    const Search s;
    const Array<int> found(2);
    task.contenders.push_back({"OpenCV",
                               [=] {
                                   const cv::Mat image(kSide, kSide, CV_8UC1, s.image.data());
                                   const cv::Mat reference(kHeight, kWidth, CV_8UC1, s.reference.data());
                                   const cv::Rect area(s.columns[1] - kReach, s.rows[1] - kReach, kWidth + 2 * kReach,
                                                       kHeight + 2 * kReach);
                                   cv::Mat scores;
                                   cv::matchTemplate(image(area), reference, scores, cv::TM_CCOEFF_NORMED);
                                   cv::Point best;
                                   cv::minMaxLoc(scores, nullptr, nullptr, nullptr, &best);
                                   found[0] = area.y + best.y;
                                   found[1] = area.x + best.x;
                               },
                               [=] { return found.numbers(); }});
#endif
    return task;
}

Task rough_search()
{
    constexpr int kCandidates = 121;
    Task task{"Rough search of a 33 x 32 block, 121 candidates", "candidate", kCandidates, 0, {}};
    for (const Maker& maker : makers()) {
        const auto function = maker.function("RoughCorrelation", &CUtils_SSE::RoughCorrelation);
        const Search s;
        const Array<unsigned short> rows(kCandidates), columns(kCandidates);
        for (int k = 0; k < kCandidates; ++k) {
            rows[static_cast<std::size_t>(k)] = static_cast<unsigned short>(kRow + k / 11 - 5);
            columns[static_cast<std::size_t>(k)] = static_cast<unsigned short>(kColumn + k % 11 - 5);
        }
        task.contenders.push_back({maker.name,
                                   [=] {
                                       s.best[1] = 0;
                                       function(s.image.data(), rows.data(), columns.data(), s.found_rows.data(),
                                                s.found_columns.data(), kCandidates, s.slots.data(), s.work.data(),
                                                s.reference.data(), s.best.data(), kHalf, kSide, kSide, s.scratch.data(),
                                                kWidth, s.deviation, s.mean, 100);
                                   },
                                   [=] {
                                       return std::vector<double>{double(s.found_rows[1]), double(s.found_columns[1])};
                                   }});
    }
    return task;
}

Task differences()
{
    Task task{"Sum of absolute differences, 512 x 512", "frame", 1, 0, {}};
    const Array<unsigned char> a(kSide * kSide), b(kSide * kSide);
    Noise noise;
    for (std::size_t i = 0; i < a.size(); ++i) {
        a[i] = static_cast<unsigned char>(127 + 100 * noise());
        b[i] = static_cast<unsigned char>(127 + 100 * noise());
    }
    using Function = long long (*)(const unsigned char*, const unsigned char*, int);
    for (const Maker& maker : makers()) {
        const auto function = maker.function("SumAbsDiff (pixels)", Function());
        const Array<double> sum(1);
        task.contenders.push_back({maker.name,
                                   [=] { sum[0] = static_cast<double>(function(a.data(), b.data(), kSide * kSide)); },
                                   [=] { return sum.numbers(); }});
    }
#if UTILS_SSE_BENCH_OPENCV
    const Array<double> sum(1);
    task.contenders.push_back({"OpenCV",
                               [=] {
                                   sum[0] = cv::norm(cv::Mat(kSide, kSide, CV_8UC1, a.data()),
                                                     cv::Mat(kSide, kSide, CV_8UC1, b.data()), cv::NORM_L1);
                               },
                               [=] { return sum.numbers(); }});
#endif
#if UTILS_SSE_BENCH_LIBYUV
    const Array<double> squares(1);
    task.contenders.push_back({"(libyuv, squares)",
                               [=] {
                                   squares[0] = static_cast<double>(
                                       libyuv::ComputeSumSquareErrorPlane(a.data(), kSide, b.data(), kSide, kSide, kSide));
                               },
                               nullptr});
#endif
    return task;
}

template <class Score>
void add_score(std::vector<Task>& tasks, const char* title, Score)
{
    Task task{std::string(title) + " of 2,048 samples", "call", 1, 0, {}};
    const Array<short> a(2048), b(2048);
    Noise noise;
    for (std::size_t i = 0; i < a.size(); ++i) {
        a[i] = static_cast<short>(20000 * noise());
        b[i] = static_cast<short>(0.7 * a[i] + 6000 * noise());
    }
    for (const Maker& maker : makers()) {
        const auto function = maker.function(title, Score());
        const Array<double> score(1);
        task.contenders.push_back({maker.name, [=] { score[0] = static_cast<double>(function(a.data(), b.data(), 2048)); },
                                   [=] { return score.numbers(); }});
    }
    tasks.push_back(task);
}

} // namespace

void add_motion_tasks(std::vector<Task>& tasks)
{
    tasks.push_back(fine_search());
    tasks.push_back(rough_search());
    tasks.push_back(differences());
    using Double = double (*)(const short*, const short*, int);
    using Single = float (*)(const short*, const short*, int);
    add_score(tasks, "NormalizedCovariance", Double());
    add_score(tasks, "NormalizedCovarianceF", Single());
    add_score(tasks, "NormalizedCorrelation", Double());
    add_score(tasks, "NormalizedCorrelationF", Single());
}

} // namespace bench
