// The command line of the client.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

#include "client/arguments.hpp"
#include "client/demos/demo.hpp"
#include "client/failure.hpp"
#include "client/program.hpp"

namespace tuvo::client {
namespace {

/// What the command line says.
struct Words {
    Settings settings;
    bool relaxed_math = false;
    bool no_vectorize = false;
    std::string program, kernel, demo, file;
    std::string output = ".";
    std::uint64_t size = 0;
    std::vector<std::string> arguments;
};

Settings settings_of(const Words& words) {
    Settings settings = words.settings;
    if (settings.builtins.empty())
        settings.builtins = words.relaxed_math ? TUVO_RELAXED_BUILTINS : TUVO_DEFAULT_BUILTINS;
    settings.vectorize = !words.no_vectorize;
    return settings;
}

int run(const Words& words) {
    const Program program = build_program(words.program, settings_of(words));
    const KernelSignature& kernel = find_kernel(program, words.kernel);
    std::vector<Argument> arguments;
    for (const std::string& text : words.arguments) arguments.push_back(parse_argument(text));
    fit_arguments(kernel, arguments);
    run_on_arguments(program, kernel, arguments, words.size);
    for (const Argument& argument : arguments) write_output(argument);
    return 0;
}

int print_ir(const Words& words) {
    std::fputs(bound_ir(words.program, settings_of(words)).c_str(), stdout);
    return 0;
}

int demo(const Words& words) {
    const DemoOptions options{.settings = settings_of(words), .file = words.file, .folder = words.output};
    return run_demos(words.demo, options) ? 0 : 1;
}

std::string list_of_demos() {
    std::string text = "demonstrations:\n";
    for (const Demo& demo : demos()) {
        char line[32];
        std::snprintf(line, sizeof line, "  %-10s ", demo.name);
        text += line + std::string(demo.help) + "\n";
    }
    return text;
}

/// Options that all commands take, before or behind the command's name.
void add_common_options(CLI::App& app, Words& words) {
    app.add_option("--library", words.settings.library, "the library; the one built with the client, if none is named")
        ->take_last();
    app.add_option("--builtins", words.settings.builtins, "the built-ins that call it, as bitcode or text; likewise")
        ->take_last();
    app.add_option("--clang", words.settings.clang, "the OpenCL C front end")->take_last();
    app.add_option("--features", words.settings.features, "processor features to generate code for")
        ->take_last()
        ->capture_default_str();
    app.add_flag("--relaxed-math", words.relaxed_math,
                 "built-ins without native_ or half_ take the tier rm where there is one");
    app.add_flag("--no-vectorize", words.no_vectorize, "work-items one after the other, as they are written");
}

int perform(int count, char** texts) {
    Words words;
    words.settings.library = TUVO_DEFAULT_LIBRARY;
    words.settings.clang = TUVO_DEFAULT_CLANG;
    CLI::App app{"Compiles OpenCL C programs, binds their built-ins to the library and runs them."};
    app.require_subcommand(1);
    app.fallthrough();
    app.footer(
        "exit status: 0 done, 1 a demonstration differs from its reference, 2 something is unfit; the message says "
        "what");
    add_common_options(app, words);

    CLI::App* run_command = app.add_subcommand("run", "runs a kernel of a program with the global ids 0 to N - 1");
    run_command->add_option("PROGRAM", words.program, "OpenCL C source")->required();
    run_command->add_option("KERNEL", words.kernel, "name of the kernel")->required();
    run_command->add_option("ARGUMENT", words.arguments, "one for each parameter; see below");
    run_command->add_option("--size", words.size, "number of work-items")
        ->required()
        ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{1} << 40));
    run_command->footer(std::string("arguments of a kernel:\n") + argument_help);
    CLI::App* ir_command = app.add_subcommand("ir", "prints the bound module, in LLVM's language");
    ir_command->add_option("PROGRAM", words.program, "OpenCL C source")->required();
    CLI::App* demo_command = app.add_subcommand(
        "demo",
        "runs a demonstration, or all that the library can serve: OpenCL C programs, timed beside the same programs "
        "with the functions of scalar libm, and compared with a reference");
    demo_command->add_option("NAME", words.demo, "the demonstration");
    demo_command->add_option("FILE", words.file, "what it works on, for those that take a file");
    demo_command->add_option("--output", words.output, "folder for the pictures and tables that it writes")
        ->capture_default_str();
    demo_command->footer(list_of_demos());
    try {
        app.parse(count, texts);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    if (run_command->parsed()) return run(words);
    if (ir_command->parsed()) return print_ir(words);
    return demo(words);
}

}  // namespace
}  // namespace tuvo::client

int main(int count, char** words) {
    try {
        return tuvo::client::perform(count, words);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tuvo-client: %s\n", error.what());
        return 2;
    }
}
