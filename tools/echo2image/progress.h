// A progress bar on the terminal; nothing when the messages go to a pipe or a file.
#pragma once

#include <cstdint>
#include <string>

namespace echo2image {

class Progress
{
public:
    Progress(std::string what, std::int64_t total); // shown for more than one step only
    ~Progress();                                    // clears the bar
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    void step();

private:
    std::string what_;
    std::int64_t total_;
    std::int64_t done_ = -1;
    bool shown_;
    int shown_width_ = 0;
};

} // namespace echo2image
