// echo2image: ultrasound recordings in, pictures out.
#include "bad_input.h"
#include "commands.h"
#include "input_file.h"
#include "output_file.h"
#include "recipe.h"

#include <CLI/CLI.hpp>

#include <clocale>
#include <csignal>
#include <cstdio>
#include <exception>
#include <new>
#include <string>

namespace {

using namespace echo2image;

int complain(const std::string& message)
{
    std::fflush(stdout);
    std::fprintf(stderr, "echo2image: %s\n", printable(message).c_str());
    return exit_bad_input;
}

int run(int argc, char** argv)
{
    CLI::App program("Ultrasound recordings in, pictures out.", "echo2image");
    program.set_version_flag("--version", program_version());
    program.allow_windows_style_options(false); // /folder/picture.png is a file
    program.require_subcommand(1);
    program.footer("echo2image COMMAND --help says more about a command.");
    const Command commands[] = {add_bmode_command(program),  add_colour_command(program), add_demo_command(program),
                                add_filter_command(program), add_info_command(program),   add_motion_command(program),
                                add_verify_command(program)};
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
            return program.exit(error); // help and version
        return complain(std::string(error.what()) + "; echo2image --help says what is possible");
    }
    for (const Command& command : commands)
        if (command.app->parsed())
            return command.run();
    return exit_bad_input;
}

} // namespace

int main(int argc, char** argv)
{
#ifdef _WIN32
    std::setlocale(LC_CTYPE, ""); // arguments come in the code page of the system; std::filesystem::path asks for it
#endif
    note_signals();
    int code = exit_bad_input;
    try {
        code = run(argc, argv);
        stop_when_interrupted();
    } catch (const Interrupted& interrupted) {
        std::signal(interrupted.signal, SIG_DFL);
        std::raise(interrupted.signal);
    } catch (const std::bad_alloc&) {
        return complain("not enough memory");
    } catch (const std::exception& error) {
        return complain(error.what());
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0)
        return complain("the output cannot be written");
    return code;
}
