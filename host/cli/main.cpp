#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <new>
#include <unistd.h>

#include "commands.h"
#include "interruption.h"

#include "orvik/crashhandler.h"
#include "orvik/host.h"

namespace orvik::cli {

namespace {

constexpr const char* kExamples =
    "Examples:\n"
    "  orvik info picture.png\n"
    "  orvik info --json picture.png | jq .width\n"
    "  orvik info --html report.html *.png\n"
    "  orvik convert picture.png picture.bmp\n"
    "  orvik convert --set interlaced=true scan.bmp scan.png\n"
    "  orvik convert --profile press.icc picture.png proof.png\n"
    "  orvik pixels --format rgb.u8 picture.png -o picture.raw\n"
    "\n"
    "Exit status: 0 done, 1 failed, 2 wrong usage; an interrupted command ends by the signal.\n"
    "The module is looked for in ORVIK_MODULE_PATH, then beside the program.";

struct Options {
    bool verbose = false;
    bool json = false;
    InfoOptions info;
    ConvertOptions convert;
    PixelsOptions pixels;
};

using Run = std::function<int(const Console&)>;

/// Stands before each argument after "--" while the command line is parsed: the parser would still take what looks like
/// an option for one once the command has a file.
constexpr std::string_view kFileMark = "\x01--\x01";

std::string WithoutMarks(std::string text) {
    for (size_t at = 0; (at = text.find(kFileMark, at)) != std::string::npos;)
        text.erase(at, kFileMark.size());
    return text;
}

/// The arguments in the parser's order, the last one first.
std::vector<std::string> PrepareArguments(int argc, char** argv) {
    std::vector<std::string> arguments(argv + std::min(argc, 1), argv + argc);
    const auto end = std::ranges::find(arguments, "--");
    if (end != arguments.end()) {
        for (auto file = arguments.erase(end); file != arguments.end(); ++file)
            file->insert(0, kFileMark);
    }
    std::ranges::reverse(arguments);
    return arguments;
}

template <class T>
void AddFiles(CLI::App& command, const char* name, T& files, const char* description) {
    command.add_option(name, files, description)->required()->transform([](std::string name) {
        return WithoutMarks(std::move(name));
    });
}

/// Adds a subcommand; `chosen` becomes its `run` when the user names it.
CLI::App* AddCommand(CLI::App& app, const char* name, const char* description, Run& chosen, Run run) {
    CLI::App* command = app.add_subcommand(name, description);
    command->footer("");
    command->callback([&chosen, run = std::move(run)] { chosen = run; });
    return command;
}

void AddSelection(CLI::App& command, SelectionOptions& selection) {
    command.add_option("--image", selection.image, "Which image of the file, from 1");
    command
        .add_option("--path", selection.paths,
                    "A node below the image, as 'Folder/Layer 1' or 'Alpha'; if repeated, layers to composite")
        ->allow_extra_args(false);
    command.add_flag("--composite", selection.composite, "Composite the visible layers, or those of --path");
}

void Describe(CLI::App& app, Options& options, Run& chosen) {
    app.set_help_flag("-h,--help", "Show this help");
    app.set_version_flag("--version", "orvik " ORVIK_VERSION, "Show the version");
    app.add_flag("-v,--verbose", options.verbose, "Show causes and source locations of errors");
    app.footer(kExamples);
    app.require_subcommand(1);
    app.fallthrough();

    CLI::App* info = AddCommand(app, "info", "Show the contents of picture files: images, alphas, layers, metadata",
                                chosen, [&](const Console& console) { return RunInfo(console, options.info); });
    AddFiles(*info, "URL", options.info.files, "Files");
    info->add_flag("--json", options.info.json, "As JSON: an object for one file, a list for several");
    info->add_flag("--headers", options.info.headersOnly, "Read the headers only, not the pixels");
    info->add_option("--html", options.info.report, "Write a page that shows every node with a thumbnail")
        ->type_name("REPORT")
        ->excludes("--json")
        ->excludes("--headers");

    CLI::App* convert = AddCommand(app, "convert", "Load a picture and save it in another format", chosen,
                                   [&](const Console& console) { return RunConvert(console, options.convert); });
    AddFiles(*convert, "IN", options.convert.input, "File to load, '-' for standard input");
    AddFiles(*convert, "OUT", options.convert.output, "File to save, '-' for standard output");
    convert->add_option("-t,--to", options.convert.format, "Format to write; otherwise the suffix of OUT decides");
    convert->add_option("-s,--set", options.convert.settings, "Export setting key=value; can be repeated")
        ->allow_extra_args(false);
    convert->add_option("-p,--profile", options.convert.profile,
                        "Convert colours into a profile: an ICC file, 'srgb' or 'linear'");
    AddSelection(*convert, options.convert.selection);
    convert->footer("'orvik formats' lists the settings. The end of a key is enough: quality=0.9.");

    CLI::App* pixels = AddCommand(app, "pixels", "Write the pixels of an image as plain rows", chosen,
                                  [&](const Console& console) { return RunPixels(console, options.pixels); });
    AddFiles(*pixels, "IN", options.pixels.input, "File to load, '-' for standard input");
    pixels->add_option("-o,--output", options.pixels.output, "File to write, '-' for standard output")->required();
    pixels->add_option("-f,--format", options.pixels.pixelFormat, "Pixel format, by id or short name")
        ->capture_default_str();
    AddSelection(*pixels, options.pixels.selection);
    pixels->footer("Rows from the top, without padding. Indexed formats need a picture that has such indices.");

    CLI::App* formats = AddCommand(app, "formats", "List file formats, what each can hold and its export settings",
                                   chosen, [&](const Console& console) { return RunFormats(console, options.json); });
    formats->add_flag("--json", options.json, "As JSON");
    CLI::App* pixelFormats = AddCommand(app, "pixelformats", "List pixel formats", chosen,
                                        [&](const Console& console) { return RunPixelFormats(console, options.json); });
    pixelFormats->add_flag("--json", options.json, "As JSON");
}

/// The help of the subcommand that was named, or the whole program's.
std::string ChosenHelp(const CLI::App& app) {
    const auto named = app.get_subcommands();
    return named.empty() ? app.help() : named.front()->help(app.get_name());
}

int RunWithHost(Console& console, const Run& run) {
    const Result<Host> host = Host::Start();
    if (!host)
        return console.Fail(kDefaultModules[0], host.GetError());
    for (const String& missing : host->GetMissingModules())
        console.SetMissingModule(std::string(missing.GetText()));
    const CancelScope scope(Interruption::GetToken());
    return run(console);
}

int Main(int argc, char** argv) {
    Console console;
    Options options;
    Run run;
    CLI::App app("orvik " ORVIK_VERSION ": inspects picture files, converts them, writes out their pixels", "orvik");
    Describe(app, options, run);
    Interruption::Install();
    try {
        app.parse(PrepareArguments(argc, argv));
    } catch (const CLI::CallForHelp&) {
        return console.Write(ChosenHelp(app));
    } catch (const CLI::CallForVersion& version) {
        return console.Write(std::string(version.what()) + "\n");
    } catch (const CLI::ParseError& failure) {
        return console.FailUsage(WithoutMarks(failure.what()));
    }
    console.SetVerbose(options.verbose);
    return RunWithHost(console, run);
}

}  // namespace

}  // namespace orvik::cli

/// Before the static objects of the libraries are made, which need memory.
[[gnu::constructor(101)]] static void InstallFirst() { orvik::InstallCrashHandler(); }

int main(int argc, char** argv) {
    using orvik::cli::Console, orvik::cli::Interruption;
    // Destructors of the libraries for options and JSON allocate: an exception from there would end in abort.
    std::set_new_handler([] {
        Interruption::RemoveTemporaryFile();
        ::_exit(Console::FailOutOfMemory());
    });
    int status = orvik::cli::kFailed;
    try {
        status = orvik::cli::Main(argc, argv);
    } catch (const std::bad_alloc&) {  // a size that no allocator could serve
        status = Console::FailOutOfMemory();
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "orvik: %s\n", failure.what());
    }
    // By now everything is cleaned up. A shell that runs a list of commands stops only if the signal ended this one.
    if (const int signal = Interruption::GetSignal(); signal != 0 && status == 128 + signal)
        Interruption::EndBySignal(signal);
    return status;
}
