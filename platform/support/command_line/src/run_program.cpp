#include <exception>
#include <ostream>

#include <CLI/CLI.hpp>

#include <command_line/run_program.h>

namespace command_line {

int RunProgram(const Program& program, const Definition& define) {
    try {
        CLI::App app(program.description, program.name);
        const Action run = define(app);
        try {
            app.parse(program.argc, program.argv);
        } catch (const CLI::ParseError& error) {
            return app.exit(error, program.output, program.errors);
        }
        return run();
    } catch (const std::exception& error) {
        program.errors << program.name << ": " << error.what() << std::endl;
        return 1;
    }
}

}  // namespace command_line
