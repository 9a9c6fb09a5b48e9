#include "harness.h"

#include "description.h"
#include "recipe.h"

#include <algorithm>

namespace fuzz {

namespace {

constexpr std::int64_t most_bytes = 1 << 18; // of samples; more takes time and shows nothing new

} // namespace

void fit_size(const fs::path& file, const std::vector<std::int64_t>& shape, std::uint64_t header_bytes, int element_bytes)
{
    std::int64_t bytes = element_bytes;
    for (const std::int64_t count : shape)
        bytes = count >= 1 && count <= most_bytes / bytes ? bytes * count : most_bytes + 1;
    if (bytes <= most_bytes && header_bytes <= most_bytes)
        fs::resize_file(file, header_bytes + static_cast<std::uint64_t>(bytes));
}

void make_picture(const Recording& recording, const ChainParameters& wanted)
{
    Chain chain(recording.description(), wanted);
    FrameFilters filters = chain.filters();
    GreyImage image;
    if (chain.has_envelope()) {
        const EnvelopeFrame envelope = chain.envelope(read_frame(recording, chain, 0));
        if (chain.parameters().reference == 0)
            chain.set_reference(std::max(largest(envelope), 1e-30f));
        image = chain.shown(filters.next(chain.grey(envelope)), envelope.clipped);
    } else {
        image = chain.shown(filters.next(chain.grey(recording.read_frame_u8(0))), {});
    }
    demand(image.width > 0 && image.height > 0 &&
               image.pixels.size() == static_cast<std::size_t>(image.width) * static_cast<std::size_t>(image.height),
           "a picture has its pixels");
}

void check(const Recording& recording)
{
    const Description& d = recording.description();
    demand(d.frames >= 1 && d.lines >= 1 && d.samples >= 1 && d.firings >= 1, "a recording holds something");
    demand(d.axes.size() == d.shape.size(), "every axis has a name");
    for (const std::int64_t line : d.dead_lines)
        demand(line >= 0 && line < d.lines, "dead lines are lines");
    const std::string text = describe(recording);
    demand(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) < 30 && text.size() < 20000,
           "a recording is described in a few lines");
    demand(recording.digest().size() == 64, "a digest has 64 digits");
    const std::int64_t size = d.lines * d.samples;
    if (size * d.firings > most_bytes)
        return;
    const auto holds = [](const auto& frame, std::int64_t elements) {
        demand(static_cast<std::int64_t>(frame.size()) == elements, "a frame has the declared size");
    };
    const std::int64_t components = d.content == Content::iq ? 2 : 1;
    for (const std::int64_t frame : {std::int64_t{0}, d.frames - 1}) {
        if (d.content == Content::bmode) {
            holds(recording.read_frame_u8(frame), size);
            continue;
        }
        holds(recording.read_frame_i16(frame), size * components);
        holds(recording.read_firings_i16(frame), size * components * d.firings);
        if (d.content == Content::iq)
            holds(recording.read_ensembles_i16(frame, d.firings), size * components * d.firings);
    }
}

void open_and_check(const fs::path& file, const fs::path& folder)
{
    read_or_reject([&] { check(Recording::open(file, folder, Need::layout)); });
    read_or_reject([&] {
        const Recording recording = Recording::open(file, folder);
        check(recording);
        ChainParameters wanted;
        wanted.width = 64;
        if (recording.description().lines * recording.description().samples <= 4096)
            make_picture(recording, wanted);
    });
}

} // namespace fuzz
