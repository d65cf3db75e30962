#include <algorithm>
#include <cctype>
#include <sstream>

#include <CLI/CLI.hpp>

#include "platform/core/build_version.h"
#include "tools/commands.h"
#include "tools/output.h"

// How it works: the manual is made from the texts of the help, so that both state the same. Each
// command and each option appears with its description. Each line "Title: text" of the program's
// footer becomes a section. The output is roff for the macros of man(7).
namespace teravolant::release {
namespace {

/// Escapes what roff would interpret in a text.
std::string roff(std::string_view text) {
    std::string result;
    bool isLineStart = true;
    for (const char character : text) {
        if (character == '\\' || character == '-') {
            result += character == '-' ? "\\-" : "\\e";
        } else {
            // A control line begins with one of these.
            result += isLineStart && (character == '.' || character == '\'') ? "\\&" : "";
            result += character;
        }
        isLineStart = character == '\n';
    }
    return result;
}

std::string bold(std::string_view text) { return "\\fB" + roff(text) + "\\fR"; }
std::string italic(std::string_view text) { return "\\fI" + roff(text) + "\\fR"; }

std::string section(std::string title, const std::string& text) {
    std::ranges::transform(title, title.begin(),
                           [](unsigned char letter) { return std::toupper(letter); });
    return ".SH " + roff(title) + "\n" + text;
}

/// Returns an option or argument as the user types it.
std::string callOf(const CLI::Option& option) {
    const std::string type = option.get_type_name();
    if (option.get_positional()) {
        return italic(type);
    }
    const std::string name = bold(option.get_name(false, true));
    return type.empty() ? name : name + " " + italic(type);
}

std::vector<const CLI::Option*> documentedOptions(const CLI::App& command) {
    return command.get_options([&command](const CLI::Option* option) {
        return !option->get_group().empty() &&
               (option != command.get_help_ptr() || command.get_parent() == nullptr);
    });
}

std::string optionsOf(const CLI::App& command) {
    std::string text;
    for (const CLI::Option* option : documentedOptions(command)) {
        text += ".TP\n" + callOf(*option) + "\n" + roff(option->get_description()) + "\n";
    }
    return text;
}

std::string commandSection(const CLI::App& command) {
    std::string call = bold(command.get_name());
    bool hasOptions = false;
    for (const CLI::Option* option : documentedOptions(command)) {
        call += option->get_required() ? " " + callOf(*option) : "";
        hasOptions = hasOptions || !option->get_required();
    }
    call += hasOptions ? " [" + italic("OPTION") + "]..." : "";
    return ".SS " + call + "\n" + roff(command.get_description()) + "\n" + optionsOf(command);
}

std::string manualOf(const CLI::App& program) {
    const std::string& name = program.get_name();
    std::string commands;
    for (const CLI::App* command : program.get_subcommands(
             [](const CLI::App* found) { return !found->get_group().empty(); })) {
        commands += commandSection(*command);
    }
    std::string manual =
        ".TH TERAVOLANT\\-RELEASE 1 \"\" \"" + roff(name) + " " + roff(platform::buildVersion()) +
        "\"\n" + section("Name", roff(name + " - " + program.get_description()) + "\n") +
        section("Synopsis",
                bold(name) + " " + italic("COMMAND") + " [" + italic("OPTION") + "]...\n") +
        section("Commands", commands) + section("Options", optionsOf(program));
    std::istringstream notes(program.get_footer());
    for (std::string note; std::getline(notes, note);) {
        const std::size_t colon = note.find(": ");
        if (colon != std::string::npos) {
            manual += section(note.substr(0, colon), roff(note.substr(colon + 2)) + "\n");
        }
    }
    return manual;
}

}  // namespace

void addManual(CLI::App& program, Work& work) {
    // Without a group, the help does not list the command.
    CLI::App* command =
        program.add_subcommand("manual", "Prints the manual page for man(1)")->group("");
    command->callback([&program, &work] {
        work = [&program](const std::stop_token& /*stop*/) { return print(manualOf(program)); };
    });
}

}  // namespace teravolant::release
