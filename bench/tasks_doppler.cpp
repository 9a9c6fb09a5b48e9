// A colour frame: 100,000 pixels with an ensemble each. Spectra of lines.
#include "tasks.h"

#include "utils_sse.h"

#include <cmath>
#include <complex>
#include <type_traits>

#if UTILS_SSE_BENCH_EIGEN
#include <Eigen/Core>
#endif
#if UTILS_SSE_BENCH_FFTW
#include <fftw3.h>
#endif
#if UTILS_SSE_BENCH_VOLK
#include <volk/volk.h>
#endif

namespace bench {
namespace {

constexpr std::size_t kPixels = 100000;
constexpr float kStep = 0.3f; // radians from firing to firing

// Ensembles of a pixel lie one behind the other, each at a multiple of 16 bytes.
struct Ensembles
{
    int n;
    std::size_t pitch = n <= 8 ? 8 : 12;
    Array<float> i{kPixels * pitch}, q{kPixels * pitch};

    explicit Ensembles(int firings) : n(firings)
    {
        Noise noise;
        for (std::size_t p = 0; p < kPixels; ++p)
            for (int k = 0; k < n; ++k) {
                const double phase = 0.1 * static_cast<double>(p) + (0.4 + 0.3 * noise()) * k;
                i[p * pitch + static_cast<std::size_t>(k)] = static_cast<float>(1000 * std::cos(phase) + 100 * noise());
                q[p * pitch + static_cast<std::size_t>(k)] = static_cast<float>(1000 * std::sin(phase) + 100 * noise());
            }
    }

    std::vector<std::complex<float>> interleaved() const
    {
        std::vector<std::complex<float>> z(kPixels * static_cast<std::size_t>(n));
        for (std::size_t p = 0; p < kPixels; ++p)
            for (std::size_t k = 0; k < static_cast<std::size_t>(n); ++k)
                z[p * static_cast<std::size_t>(n) + k] = {i[p * pitch + k], q[p * pitch + k]};
        return z;
    }
};

std::vector<double> numbers(const Ensembles& ensembles)
{
    std::vector<double> all;
    for (const std::complex<float>& z : ensembles.interleaved())
        all.insert(all.end(), {static_cast<double>(z.real()), static_cast<double>(z.imag())});
    return all;
}

[[maybe_unused]] std::vector<double> numbers(const std::vector<std::complex<float>>& values) // without VOLK
{
    std::vector<double> all;
    for (const std::complex<float>& z : values)
        all.insert(all.end(), {static_cast<double>(z.real()), static_cast<double>(z.imag())});
    return all;
}

// --- autocorrelation ---

struct Flow
{
    Array<float> spread{kPixels}, power{kPixels}, re{kPixels}, im{kPixels};

    std::vector<double> numbers() const
    {
        std::vector<double> all;
        for (const auto* part : {&spread, &power}) // of one size; the autocorrelation is in the spread
            all.insert(all.end(), part->begin(), part->end());
        return all;
    }
};

Contender autocorrelate(const Maker& maker, const Ensembles& in)
{
    const auto function = maker.function("AutoCorrelateSSE", &CUtils_SSE::AutoCorrelateSSE);
    const Flow out;
    return {maker.name,
            [=] {
                for (std::size_t p = 0; p < kPixels; ++p)
                    function(in.n, in.i.data() + p * in.pitch, in.q.data() + p * in.pitch, &out.spread[p], &out.power[p],
                             &out.re[p], &out.im[p]);
            },
            [=] { return out.numbers(); }};
}

// What of it the C library's logarithm takes.
Contender logarithms()
{
    const Array<float> power(kPixels);
    for (std::size_t p = 0; p < kPixels; ++p)
        power[p] = 1000.0f + static_cast<float>(p);
    const Array<float> decibels(kPixels);
    return {"(log10 alone)",
            [=] {
                for (std::size_t p = 0; p < kPixels; ++p)
                    decibels[p] = 10 * static_cast<float>(std::log10(static_cast<double>(power[p])));
            },
            nullptr};
}

#if UTILS_SSE_BENCH_VOLK
Contender autocorrelate_with_volk(const Ensembles& in)
{
    const auto z = std::make_shared<std::vector<std::complex<float>>>(in.interleaved());
    const Flow out;
    const auto n = static_cast<unsigned>(in.n);
    return {"VOLK",
            [=] {
                for (std::size_t p = 0; p < kPixels; ++p) {
                    const std::complex<float>* const ensemble = z->data() + p * n;
                    std::complex<float> power;
                    std::complex<float> lag;
                    volk_32fc_x2_conjugate_dot_prod_32fc(&power, ensemble, ensemble, n);
                    volk_32fc_x2_conjugate_dot_prod_32fc(&lag, ensemble + 1, ensemble, n - 1);
                    out.re[p] = lag.real();
                    out.im[p] = lag.imag();
                    out.spread[p] = 1 - std::sqrt(std::norm(lag)) / power.real();
                    out.power[p] = 10 * static_cast<float>(std::log10(power.real() / static_cast<float>(n) + 1.0));
                }
            },
            [=] { return out.numbers(); }};
}
#endif

// --- clutter filter ---

// Takes the mean away.
template <class Matrix>
Matrix mean_removal(int n)
{
    Matrix m(static_cast<std::size_t>(n * n));
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c)
            m[static_cast<std::size_t>(r * n + c)] = (r == c ? 1.0f : 0.0f) - 1.0f / static_cast<float>(n);
    return m;
}

Contender filter(const Maker& maker, const Ensembles& in)
{
    const auto function = maker.function("IIRPerformMatrix", &CUtils_SSE::IIRPerformMatrix);
    const Ensembles out(in.n);
    const auto matrix = mean_removal<Array<float>>(in.n);
    return {maker.name,
            [=] {
                for (std::size_t p = 0; p < kPixels; ++p)
                    function(in.n, in.i.data() + p * in.pitch, in.q.data() + p * in.pitch, out.i.data() + p * in.pitch,
                             out.q.data() + p * in.pitch, matrix.data());
            },
            [=] { return numbers(out); }};
}

#if UTILS_SSE_BENCH_EIGEN
// All ensembles of a plane in one product, or one after the other: whichever Eigen does faster is its figure.
template <int N>
Contender filter_with_eigen(const Ensembles& in, bool at_once)
{
    using Matrix = Eigen::Matrix<float, N, N, Eigen::RowMajor>;
    const auto matrix = mean_removal<Array<float>>(N);
    const Ensembles out(N);
    if (at_once) {
        using Plane = Eigen::Matrix<float, N, Eigen::Dynamic>;
        return {"Eigen, planes",
                [=] {
                    const Eigen::Map<const Matrix> m(matrix.data());
                    Eigen::Map<Plane>(out.i.data(), N, kPixels).noalias() =
                        m * Eigen::Map<const Plane>(in.i.data(), N, kPixels);
                    Eigen::Map<Plane>(out.q.data(), N, kPixels).noalias() =
                        m * Eigen::Map<const Plane>(in.q.data(), N, kPixels);
                },
                [=] { return numbers(out); }};
    }
    using Ensemble = Eigen::Matrix<float, N, 1>;
    return {"Eigen, ensembles",
            [=] {
                const Eigen::Map<const Matrix> m(matrix.data());
                for (std::size_t p = 0; p < kPixels; ++p) {
                    Eigen::Map<Ensemble>(out.i.data() + p * N).noalias() = m * Eigen::Map<const Ensemble>(in.i.data() + p * N);
                    Eigen::Map<Ensemble>(out.q.data() + p * N).noalias() = m * Eigen::Map<const Ensemble>(in.q.data() + p * N);
                }
            },
            [=] { return numbers(out); }};
}
#endif

// --- mixing ---

// In place: every run turns the same ensembles on, which keeps their lengths.
Contender mix(const Maker& maker, int n)
{
    const auto function = maker.function("MixingClutter", &CUtils_SSE::MixingClutter);
    const Ensembles both(n);
    return {maker.name,
            [=] {
                for (std::size_t p = 0; p < kPixels; ++p)
                    function(n, both.i.data() + p * both.pitch, both.q.data() + p * both.pitch, kStep);
            },
            [=] { return numbers(both); }};
}

#if UTILS_SSE_BENCH_VOLK
Contender mix_with_volk(int n)
{
    const auto z = std::make_shared<std::vector<std::complex<float>>>(Ensembles(n).interleaved());
    return {"VOLK",
            [=] {
                for (std::size_t p = 0; p < kPixels; ++p) {
                    std::complex<float> phase(1, 0);
                    std::complex<float>* const ensemble = z->data() + p * static_cast<std::size_t>(n);
                    volk_32fc_s32fc_x2_rotator_32fc(ensemble, ensemble, std::polar(1.0f, kStep), &phase,
                                                    static_cast<unsigned>(n));
                }
            },
            [=] { return numbers(*z); }};
}
#endif

// --- spectra ---

constexpr std::size_t kLines = 1000;

Array<float> lines_of(std::size_t n)
{
    Noise noise;
    const Array<float> lines(kLines * n);
    for (float& sample : lines)
        sample = static_cast<float>(1000 * noise());
    return lines;
}

Contender magnitudes(const Maker& maker, const Array<float>& in, int n)
{
    const auto function = maker.function("FFTmagnitude", &CUtils_SSE::FFTmagnitude);
    const std::shared_ptr<float> table(CUtils_SSE::CreateFFTCoeffs(n), CUtils_SSE::aligned_free);
    const Array<float> out(in.size());
    const Array<float> largest(kLines);
    return {maker.name,
            [=] {
                for (std::size_t l = 0; l < kLines; ++l) {
                    const std::size_t at = l * static_cast<std::size_t>(n);
                    largest[l] = function(out.data() + at, in.data() + at, table.get(), n);
                }
            },
            [=] {
                std::vector<double> all = out.numbers();
                all.insert(all.end(), largest.begin(), largest.end());
                return all;
            }};
}

#if UTILS_SSE_BENCH_FFTW
// Another transform and less of it: the bins 0 .. n / 2 of the discrete Fourier transform, complex; magnitudes, the other half
// and the largest are left to do.
Contender transform_with_fftw(const Array<float>& in, int n)
{
    const auto bins = static_cast<std::size_t>(n / 2 + 1);
    const std::size_t pitch = (bins + 7) / 8 * 8; // of lines that start at multiples of 64 bytes, as the plan's do
    const Array<float> out(2 * pitch * kLines);
    const auto to = [out, pitch](std::size_t l) { return reinterpret_cast<fftwf_complex*>(out.data() + 2 * pitch * l); };
    const Array<float> scratch(static_cast<std::size_t>(n)); // planning writes
    const std::shared_ptr<std::remove_pointer_t<fftwf_plan>> plan(fftwf_plan_dft_r2c_1d(n, scratch.data(), to(0), FFTW_MEASURE),
                                                                  fftwf_destroy_plan);
    return {"(FFTW, complex bins)",
            [=] {
                for (std::size_t l = 0; l < kLines; ++l)
                    fftwf_execute_dft_r2c(plan.get(), in.data() + l * static_cast<std::size_t>(n), to(l));
            },
            nullptr};
}
#endif

} // namespace

void add_doppler_tasks(std::vector<Task>& tasks)
{
    for (const int n : {8, 10, 12}) {
        const std::string ensembles = ", 100,000 ensembles of " + std::to_string(n);
        const auto pixels = static_cast<double>(kPixels);
        const Ensembles in(n);

        // Sums in another order, a root of other digits: float accuracy.
        Task correlation{"Autocorrelation" + ensembles, "pixel", pixels, 1e-5, {}};
        Task clutter{"Clutter filter" + ensembles, "pixel", pixels, 1e-5, {}};
        // The parabola for the sine is good to a thousandth.
        Task mixing{"Mixing" + ensembles, "pixel", pixels, 3e-3, {}};
        for (const Maker& maker : makers()) {
            correlation.contenders.push_back(autocorrelate(maker, in));
            clutter.contenders.push_back(filter(maker, in));
            mixing.contenders.push_back(mix(maker, n));
        }
        correlation.contenders.push_back(logarithms());
#if UTILS_SSE_BENCH_VOLK
        correlation.contenders.push_back(autocorrelate_with_volk(in));
        mixing.contenders.push_back(mix_with_volk(n));
#endif
#if UTILS_SSE_BENCH_EIGEN
        if (n != 10) // ten firings are filtered with five rows: less work than a product
            for (const bool at_once : {false, true})
                clutter.contenders.push_back(n == 8 ? filter_with_eigen<8>(in, at_once) : filter_with_eigen<12>(in, at_once));
#endif
        tasks.insert(tasks.end(), {correlation, clutter, mixing});
    }
    for (const int n : {16, 64, 256}) {
        const Array<float> in = lines_of(static_cast<std::size_t>(n));
        Task spectra{"Magnitudes, 1,000 lines of " + std::to_string(n), "line", static_cast<double>(kLines), 0, {}};
        for (const Maker& maker : makers())
            spectra.contenders.push_back(magnitudes(maker, in, n));
#if UTILS_SSE_BENCH_FFTW
        spectra.contenders.push_back(transform_with_fftw(in, n));
#endif
        tasks.push_back(spectra);
    }
}

} // namespace bench
