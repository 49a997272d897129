// The command line of the client.
#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <exception>
#include <map>
#include <optional>

#include "client/arguments.hpp"
#include "client/demos/demo.hpp"
#include "client/failure.hpp"
#include "client/program.hpp"

namespace tuvo::client {
namespace {

constexpr const char* usage =
    "usage: tuvo-client run PROGRAM.cl KERNEL --size N ARGUMENT...\n"
    "       tuvo-client ir PROGRAM.cl\n"
    "       tuvo-client demo [NAME [FILE]]\n"
    "       tuvo-client --help\n"
    "\n"
    "run   compiles an OpenCL C program, binds its built-ins to the library, and runs a kernel with the global ids 0 "
    "to\n"
    "      N - 1\n"
    "ir    prints the bound module, in LLVM's language\n"
    "demo  runs a demonstration, or all that the library can serve: OpenCL C programs, timed beside the same programs\n"
    "      with the functions of scalar libm, and compared with a reference\n"
    "\n"
    "options of all:\n"
    "  --library FILE       the library; the one built with the client, if none is named\n"
    "  --manifest FILE      its manifest; likewise\n"
    "  --clang PROGRAM      the OpenCL C front end\n"
    "  --features LIST      processor features to generate code for; +avx,-avx2,-fma,-avx512f, if none are named\n"
    "  --relaxed-math       built-ins without native_ or half_ take the tier rm where there is one\n"
    "option of demo:\n"
    "  --output FOLDER      for the pictures and tables that it writes; the current one otherwise\n"
    "\n"
    "arguments of a kernel, one for each parameter:\n";

constexpr const char* exit_statuses =
    "\n"
    "exit status: 0 done, 1 a demonstration differs from its reference, 2 something is unfit; the message says what\n";

/// The command line, cut into words and options.
struct Words {
    std::vector<std::string> positional;
    std::map<std::string, std::string> options;

    std::optional<std::string> option(const std::string& name) const {
        const auto found = options.find(name);
        return found == options.end() ? std::nullopt : std::optional(found->second);
    }
};

constexpr std::array valued_options{"--library", "--manifest", "--clang", "--features", "--size", "--output"};

Words cut(const std::vector<std::string>& arguments) {
    Words words;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& word = arguments[i];
        if (!word.starts_with("--")) {
            words.positional.push_back(word);
        } else if (word == "--relaxed-math") {
            words.options[word] = "";
        } else if (std::find(valued_options.begin(), valued_options.end(), word) == valued_options.end()) {
            throw Failure("unknown option '" + word + "'; --help lists the options");
        } else if (++i == arguments.size()) {
            throw Failure("option '" + word + "' needs a value");
        } else {
            words.options[word] = arguments[i];
        }
    }
    return words;
}

/// The value of an option that must be given as a whole number from 1 to `most`.
std::uint64_t whole_number(const std::string& option, const std::string& text, std::uint64_t most) {
    std::uint64_t value = 0;
    const char* last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, value);
    if (error != std::errc() || end != last || value < 1 || value > most)
        throw Failure("option '" + option + "' needs a whole number from 1 to " + std::to_string(most) + ", not '" +
                      text + "'");
    return value;
}

Settings settings_of(const Words& words) {
    Settings settings;
    settings.library = words.option("--library").value_or(TUVO_DEFAULT_LIBRARY);
    settings.manifest = words.option("--manifest").value_or(TUVO_DEFAULT_MANIFEST);
    settings.clang = words.option("--clang").value_or(TUVO_DEFAULT_CLANG);
    settings.features = words.option("--features").value_or(default_features);
    settings.relaxed_math = words.option("--relaxed-math").has_value();
    return settings;
}

int run(const Words& words) {
    if (words.positional.size() < 3 || !words.option("--size"))
        throw Failure("'run' needs a program, a kernel and --size; --help tells more");
    const std::uint64_t size = whole_number("--size", *words.option("--size"), std::uint64_t{1} << 40);
    const Program program = build_program(words.positional[1], settings_of(words));
    const KernelSignature& kernel = find_kernel(program, words.positional[2]);
    std::vector<Argument> arguments;
    for (std::size_t i = 3; i < words.positional.size(); ++i) arguments.push_back(parse_argument(words.positional[i]));
    check_arguments(kernel, arguments);

    std::vector<void*> pointers(arguments.size());
    std::vector<void*> values;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        pointers[i] = arguments[i].memory.data();
        values.push_back(arguments[i].pointer ? &pointers[i] : pointers[i]);
    }
    run_kernel(program, kernel, values, size, kernel.name);
    for (const Argument& argument : arguments) write_output(argument);
    return 0;
}

int print_ir(const Words& words) {
    if (words.positional.size() != 2) throw Failure("'ir' needs one program; --help tells more");
    std::fputs(bound_ir(words.positional[1], settings_of(words)).c_str(), stdout);
    return 0;
}

int demo(const Words& words) {
    const std::vector<std::string>& names = words.positional;
    if (names.size() > 3) throw Failure("'demo' takes a name and one file at most; --help tells more");
    const DemoOptions options{.settings = settings_of(words),
                              .file = names.size() > 2 ? names[2] : "",
                              .folder = words.option("--output").value_or(".")};
    return run_demos(names.size() > 1 ? names[1] : "", options) ? 0 : 1;
}

void print_help() {
    std::printf("%s%s\ndemonstrations:\n", usage, argument_help);
    for (const Demo& demo : demos()) std::printf("  %-10s %s\n", demo.name, demo.help);
    std::printf("%s", exit_statuses);
}

int perform(const std::vector<std::string>& arguments) {
    if (std::find(arguments.begin(), arguments.end(), "--help") != arguments.end()) {
        print_help();
        return 0;
    }
    const Words words = cut(arguments);
    const std::string command = words.positional.empty() ? "" : words.positional[0];
    if (command == "run") return run(words);
    if (command == "ir") return print_ir(words);
    if (command == "demo") return demo(words);
    throw Failure(command.empty() ? "a command is missing; --help lists them"
                                  : "unknown command '" + command + "'; --help lists them");
}

}  // namespace
}  // namespace tuvo::client

int main(int count, char** words) {
    try {
        return tuvo::client::perform({words + 1, words + count});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tuvo-client: %s\n", error.what());
        return 2;
    }
}
