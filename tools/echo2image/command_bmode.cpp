#include "bad_input.h"
#include "bmode_options.h"
#include "commands.h"
#include "envelope_difference.h"
#include "filter_options.h"
#include "npy_write.h"
#include "option_values.h"
#include "progress.h"
#include "recipe.h"
#include "units.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace echo2image {

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> picture_names(const BmodeOptions& options, const FrameRange& range)
{
    if (options.output.empty())
        return {};
    const fs::path output = options.output;
    expect_extension("-o", output, ".png");
    if (options.frames.empty())
        return {output};
    std::vector<fs::path> names;
    for (std::int64_t frame = range.first; frame < range.end; ++frame) {
        char number[32];
        std::snprintf(number, sizeof number, "-%04lld.png", static_cast<long long>(frame));
        names.push_back(output.parent_path() / (output.stem().string() + number));
    }
    return names;
}

// Every output can be written, and none replaces an input.
void check_outputs(const std::vector<fs::path>& outputs, const Description& description)
{
    for (const fs::path& output : outputs) {
        check_target(output);
        for (const fs::path& input : {description.source, description.data_file}) {
            std::error_code error;
            if (fs::equivalent(output, input, error))
                throw BadInput(output.string() + ": cannot be written: it is the recording itself");
        }
    }
}

// The fixed-point detector's envelopes beside those of the general one, which filters the same samples to the same places:
// once with the same taps, which shows the rounding, and once with those it would choose.
class Comparison
{
public:
    Comparison(const Recording& recording, const ChainParameters& wanted, const Chain& fixed)
        : same_taps_(recording.description(), general(wanted, fixed, fixed.parameters().taps - 1)),
          own_taps_(recording.description(), general(wanted, fixed, 0)), name_(fixed.detector().name()),
          parameters_(fixed.parameters())
    {}
    // The floor is known when the reference is.
    void set_reference(float reference)
    {
        floor_ = double{reference} * std::pow(10, -parameters_.dynamic_range / 20);
        same_ = own_ = EnvelopeDifference(floor_);
    }
    void add(const std::vector<std::int16_t>& samples, const EnvelopeFrame& found)
    {
        same_.add(found, same_taps_.envelope(samples));
        own_.add(found, own_taps_.envelope(samples));
    }
    std::string table() const
    {
        char line[160];
        std::snprintf(line, sizeof line,
                      "%s, %d taps, decimation %d, against EnvelopDetectGen where that is above %.4g (%g dB below white):\n",
                      name_, parameters_.taps, parameters_.decimation, floor_, parameters_.dynamic_range);
        std::string table = line;
        const auto add = [&](const char* taps, const Chain& general, const EnvelopeDifference& difference) {
            std::snprintf(line, sizeof line, "  %-14s %4d taps   rms %6.3f dB   largest %7.3f dB   %lld values\n", taps,
                          general.parameters().taps, difference.rms(), difference.largest(),
                          static_cast<long long>(difference.count()));
            table += line;
            if (difference.silent() > 0)
                table += "    besides, " + std::to_string(difference.silent()) +
                         " values where one envelope is 0 and the other is not, which no dB can tell\n";
        };
        add("same low-pass", same_taps_, same_);
        add("its own", own_taps_, own_);
        return table;
    }

private:
    static ChainParameters general(ChainParameters wanted, const Chain& fixed, int taps)
    {
        wanted.detector = DetectorKind::general;
        wanted.taps = taps;
        wanted.decimation = fixed.parameters().decimation;
        wanted.bandwidth = fixed.parameters().bandwidth;
        return wanted;
    }

    Chain same_taps_;
    Chain own_taps_;
    const char* name_;
    ChainParameters parameters_;
    double floor_ = 0;
    EnvelopeDifference same_{0};
    EnvelopeDifference own_{0};
};

class BmodeRun
{
public:
    BmodeRun(const BmodeOptions& options, const Recording& recording, const FrameRange& range)
        : options_(options), recording_(recording), range_(range),
          chain_(recording.description(), wanted_by(options, recording.description())), filters_(chain_.filters()),
          repetitions_(repetitions(options.timing))
    {
        if (!options.envelope.empty() && !chain_.has_envelope())
            throw BadInput(options.recording + ": --envelope needs RF or I/Q, found grey values");
        if (options.compare) {
            if (!chain_.has_envelope() || chain_.detector().kind() != DetectorKind::fixed)
                throw BadInput(options.recording + ": --compare needs a fixed-point detector, but " +
                               (options.general || !chain_.has_envelope() ? "none is used" : "none fits this recording"));
            comparison_.emplace(recording, wanted_by(options, recording.description()), chain_);
        }
    }

    void run()
    {
        const std::vector<fs::path> names = picture_names(options_, range_);
        std::vector<fs::path> outputs = names;
        if (!options_.envelope.empty()) {
            expect_extension("--envelope", options_.envelope, ".npy");
            outputs.emplace_back(options_.envelope);
        }
        check_outputs(outputs, recording_.description());

        if (!options_.envelope.empty()) {
            files_.emplace_back(options_.envelope);
            write_npy_header(files_.front(), {range_.end - range_.first, chain_.lines(), chain_.detector().samples()});
        }
        if (!names.empty()) {
            files_.emplace_back(names.front()); // before the long work
            recipe_.command = options_.command;
            recipe_.file = options_.recording;
            recipe_.input_digest = recording_.digest();
        }
        if (chain_.has_envelope() && chain_.parameters().reference == 0 && (!names.empty() || comparison_))
            find_reference();
        if (comparison_)
            comparison_->set_reference(chain_.parameters().reference);

        if (!names.empty() && range_.first > 0 && !chain_.parameters().filters.empty()) {
            const StageTimer timer(&times_, "frames before", 0, StageKind::apart);
            filters_ = filters_before(recording_, chain_, range_.first);
        }
        Progress progress("pictures", range_.end - range_.first);
        for (std::int64_t frame = range_.first; frame < range_.end; ++frame) {
            stop_when_interrupted();
            if (!names.empty() && frame != range_.first)
                files_.emplace_back(names[static_cast<std::size_t>(frame - range_.first)]);
            make(frame, !names.empty());
            progress.step();
        }
        for (OutputFile& file : files_)
            file.finish();
        for (OutputFile& file : files_)
            file.commit();
    }

    void report(const std::vector<fs::path>& names) const
    {
        if (!names.empty()) {
            std::printf("%s", names.front().string().c_str());
            if (names.size() > 1)
                std::printf(" to %s", names.back().filename().string().c_str());
            std::printf(": %d x %d pixels", width_, height_);
            if (pixel_size_ > 0)
                std::printf(" of %s", with_unit(pixel_size_, Quantity::length).c_str());
            if (chain_.has_envelope())
                std::printf(", %g dB below %g", chain_.parameters().dynamic_range,
                            static_cast<double>(chain_.parameters().reference));
            std::printf("\n");
        }
        if (comparison_)
            std::fputs(comparison_->table().c_str(), stdout);
        if (options_.timing.timing)
            std::fputs(table_of(times_, range_.end - range_.first, repetitions_).c_str(), stdout);
    }

private:
    // White is the largest envelope of all frames. Of a single frame the envelope is kept.
    void find_reference()
    {
        const StageTimer timer(&times_, "find reference", 0, StageKind::apart);
        const std::int64_t count = range_.end - range_.first;
        Progress progress("reference", count);
        float reference = 0;
        for (std::int64_t frame = range_.first; frame < range_.end; ++frame) {
            stop_when_interrupted();
            EnvelopeFrame envelope = chain_.envelope(read_frame(recording_, chain_, frame));
            reference = std::max(reference, largest(envelope));
            if (count == 1 && !options_.timing.timing)
                kept_ = std::move(envelope);
            progress.step();
        }
        chain_.set_reference(reference > 0 ? reference : 1); // silence is black whatever the reference
    }

    void make(std::int64_t frame, bool picture_wanted)
    {
        const std::int64_t lines = recording_.description().lines;
        std::vector<std::int16_t> echoes;
        std::vector<std::uint8_t> grey;
        if (kept_.values.empty()) {
            const StageTimer timer(&times_, "read", lines, StageKind::apart);
            if (chain_.has_envelope())
                echoes = read_frame(recording_, chain_, frame);
            else
                grey = recording_.read_frame_u8(frame);
        }
        const FrameFilters before = filters_;
        EnvelopeFrame envelope;
        GreyImage image;
        for (int repetition = 0; repetition < repetitions_; ++repetition) {
            stop_when_interrupted();
            filters_ = before;
            const ChainTimer timer(times_);
            if (chain_.has_envelope())
                envelope = kept_.values.empty() ? chain_.envelope(echoes, &times_) : std::move(kept_);
            if (picture_wanted)
                image = chain_.shown(
                    filters_.next(chain_.has_envelope() ? chain_.grey(envelope, &times_) : chain_.grey(grey, &times_), &times_),
                    envelope.clipped, &times_);
        }
        if (comparison_)
            comparison_->add(read_frame(recording_, chain_, frame), envelope);
        if (!options_.envelope.empty()) {
            const StageTimer timer(&times_, "write envelope", lines, StageKind::apart);
            write_npy_values(files_.front(), envelope.values);
        }
        if (!picture_wanted)
            return;
        recipe_.frame = frame;
        recipe_.chain = chain_.parameters();
        const StageTimer timer(&times_, "write", lines, StageKind::apart);
        write_picture(files_.back(), image, recipe_);
        width_ = image.width;
        height_ = image.height;
        pixel_size_ = image.pixel_size;
    }

    const BmodeOptions& options_;
    const Recording& recording_;
    FrameRange range_;
    Chain chain_;
    std::optional<Comparison> comparison_;
    FrameFilters filters_;
    int repetitions_;
    Recipe recipe_;
    EnvelopeFrame kept_;
    std::vector<OutputFile> files_; // of the envelope, when wanted, then of the pictures
    StageTimes times_;
    int width_ = 0;
    int height_ = 0;
    double pixel_size_ = 0;
};

} // namespace

int make_pictures(const BmodeOptions& options)
{
    if (options.recording.empty())
        throw BadInput(options.command + ": expected a RECORDING, found none");
    if (options.output.empty() && options.envelope.empty() && !options.compare)
        throw BadInput(options.command + ": expected an output, -o PICTURE.png" +
                       (options.command == "bmode" ? ", --envelope FILE.npy or --compare" : "") + ", found none");
    const Recording recording = Recording::open(options.recording, options.data);
    if (options.command == "filter" && recording.description().content != Content::bmode)
        throw BadInput(options.recording + ": filter: expected grey values, found " +
                       to_string(recording.description().content) + "; bmode takes the same filters");
    const FrameRange range = chosen_frames(options, recording.description());
    BmodeRun run(options, recording, range);
    run.run();
    run.report(picture_names(options, range));
    return exit_ok;
}

Command add_bmode_command(CLI::App& program)
{
    auto options = std::make_shared<BmodeOptions>();
    CLI::App* app =
        program.add_subcommand("bmode", "Make grey pictures of a recording: envelope, compression, scan conversion");
    add_options(*app, *options);
    return {app, [options, app] {
                options->filters = chosen_filters(*app, options->recording);
                return make_pictures(*options);
            }};
}

} // namespace echo2image
