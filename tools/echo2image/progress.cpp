#include "progress.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#if defined(_WIN32)
#include <io.h>
#else
#include <unistd.h>
#endif

namespace echo2image {

namespace {

constexpr int bar_width = 30;

bool messages_go_to_a_terminal()
{
#if defined(_WIN32)
    return _isatty(_fileno(stderr)) != 0;
#else
    return isatty(STDERR_FILENO) != 0;
#endif
}

} // namespace

Progress::Progress(std::string what, std::int64_t total)
    : what_(std::move(what)), total_(total), shown_(total > 1 && messages_go_to_a_terminal())
{
    step();
}

Progress::~Progress()
{
    if (shown_)
        std::fprintf(stderr, "\r%*s\r", shown_width_, ""); // blanks: not every Windows console knows escape sequences
}

void Progress::step()
{
    ++done_;
    if (!shown_)
        return;
    const int filled = static_cast<int>(bar_width * std::clamp<std::int64_t>(done_, 0, total_) / total_);
    std::string bar(static_cast<std::size_t>(filled), '=');
    bar.resize(bar_width, ' ');
    shown_width_ = std::fprintf(stderr, "\r%s [%s] %lld/%lld", what_.c_str(), bar.c_str(), static_cast<long long>(done_),
                                static_cast<long long>(total_));
    std::fflush(stderr);
}

} // namespace echo2image
