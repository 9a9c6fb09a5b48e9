// The subcommands of echo2image. Each function adds its subcommand to the program; what the user chose is run after
// parsing and returns the exit code. Running throws BadInput for everything that the user can put right.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace echo2image {

struct Command
{
    CLI::App* app = nullptr; // the subcommand; says whether it was chosen
    std::function<int()> run;
};

Command add_bmode_command(CLI::App& program);
Command add_colour_command(CLI::App& program);
Command add_filter_command(CLI::App& program);
Command add_info_command(CLI::App& program);
Command add_motion_command(CLI::App& program);
Command add_verify_command(CLI::App& program);
Command add_demo_command(CLI::App& program);

// Exit codes.
constexpr int exit_ok = 0;
constexpr int exit_differs = 1; // verify and demo: the picture is not what it should be
constexpr int exit_bad_input = 2;

} // namespace echo2image
