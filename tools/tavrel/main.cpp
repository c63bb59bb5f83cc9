// tavrel: looks at the object tree of a machine and works on it, as one of its processes.

#include "Commands.h"
#include "Names.h"
#include "Refusal.h"
#include "Session.h"
#include "Text.h"

#include <qz/tavrel/QZException.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <functional>
#include <iostream>

using namespace tavrel::tool;

namespace {

constexpr int refused = 1;
constexpr int wrongUsage = 2;

/// What stands on the command line.
struct Arguments {
    StartFiles files;
    std::string path = "/";
    std::string name;
    std::string value;
    std::string file;
    bool properties = false;
    bool json = false;
    bool dot = false;
    unsigned int outSize = 0;
    int interval = 200;
};

/// What a command does, and in what session.
struct Work {
    std::function<void(const Session&)> run;
    Entry entry = Entry::Join;
};

constexpr char footer[] =
    R"(A path is a step for each component from the root: /Chassis#0/Fan#1; "/" alone is the root.
A value is a number, 0x and hex digits, or text: and characters.

Exit code: 0 done; 1 refused or failed, with the reason; 2 wrong usage.)";

/// Adds a command that works on the tree.
CLI::App* command(CLI::App& app, const char* name, const char* about, Work& chosen,
                  std::function<void(const Session&)> run) {
    CLI::App* added = app.add_subcommand(name, about);
    const Entry entry = std::string(name) == "start" ? Entry::Start : Entry::Join;
    added->callback([&chosen, run = std::move(run), entry] { chosen = {run, entry}; });
    return added;
}

void addCommands(CLI::App& app, Arguments& given, Work& chosen) {
    const char* pathHelp = "path of the component";

    command(app, "start", "build the tree or join it, and say which and what changed", chosen,
            [](const Session& session) { startCommand(session); });

    CLI::App* tree = command(app, "tree", "show the tree", chosen, [&given](const Session&) {
        treeCommand(given.path,
                    given.json  ? TreeForm::Json
                    : given.dot ? TreeForm::Dot
                                : TreeForm::Text,
                    given.properties);
    });
    tree->add_option("PATH", given.path, "path to begin at; the root by default");
    tree->add_flag("--properties", given.properties, "with the values of all properties");
    CLI::Option* json = tree->add_flag("--json", given.json, "as JSON");
    tree->add_flag("--dot", given.dot, "as a graph for Graphviz")->excludes(json);

    CLI::App* get = command(app, "get", "show a property", chosen,
                            [&given](const Session&) { getCommand(given.path, given.name); });
    get->add_option("PATH", given.path, pathHelp)->required();
    get->add_option("PROPERTY", given.name, "name of the property")->required();

    CLI::App* set = command(app, "set", "store a property; waits for the component's write lock", chosen,
                            [&given](const Session&) { setCommand(given.path, given.name, given.value); });
    set->add_option("PATH", given.path, pathHelp)->required();
    set->add_option("PROPERTY", given.name, "name of the property")->required();
    set->add_option("VALUE", given.value, "what to store")->required();

    CLI::App* run = command(app, "do", "run an action", chosen, [&given](const Session&) {
        doCommand(given.path, given.name, given.value, given.outSize);
    });
    run->add_option("PATH", given.path, pathHelp)->required();
    run->add_option("ACTION", given.name, "name of the action")->required();
    run->add_option("--in", given.value, "input for the action, 0x and hex digits");
    run->add_option("--out", given.outSize, "bytes of room for what the action answers")
        ->check(CLI::Range(0, 65536));

    CLI::App* watch = command(app, "watch", "print what changes, until interrupted", chosen,
                              [&given](const Session&) { watchCommand(given.path, given.interval); });
    watch->add_option("PATH", given.path, "path to begin at; the root by default");
    watch->add_option("--interval", given.interval, "milliseconds between two looks; 200 by default")
        ->check(CLI::Range(1, 3600000));

    CLI::App* add =
        command(app, "add", "add a child; waits for the component's write lock", chosen,
                [&given](const Session& session) { addCommand(session, given.path, given.name); });
    add->add_option("PATH", given.path, "path of the new component's owner")->required();
    add->add_option("TYPE", given.name, "type of the new component")->required();

    CLI::App* remove =
        command(app, "remove", "remove a component with its subtree; waits for the owner's write lock",
                chosen, [&given](const Session& session) { removeCommand(session, given.path); });
    remove->add_option("PATH", given.path, pathHelp)->required();
}

void printNotes(const std::vector<std::string>& notes) {
    constexpr std::size_t most = 20;
    for (std::size_t i = 0; i < std::min(notes.size(), most); ++i) {
        std::cerr << "tavrel: note: " << oneLine(notes[i]) << '\n';
    }
    if (notes.size() > most) {
        std::cerr << "tavrel: note: and " << notes.size() - most << " more notes\n";
    }
}

void run(const Arguments& given, const Work& work) {
    if (!work.run) {
        traceCommand(given.file);
        return;
    }
    std::vector<std::string> notes;
    const Session session(given.files, work.entry, notes);
    printNotes(notes);
    try {
        work.run(session);
    } catch (const qz::tavrel::UnavailableComponentException&) {
        throw Refusal("'" + shown(given.path) + "' was removed meanwhile");
    }
}

int fail(const std::exception& reason, int code) {
    std::cout.flush();
    constexpr std::size_t limit = 1000;
    const std::string text = oneLine(reason.what());
    std::cerr << "tavrel: " << text.substr(0, limit) << (text.size() > limit ? "..." : "") << '\n';
    return code;
}

/// The first word that is neither an option nor its value; empty if there is none.
std::string firstWord(int count, char** words) {
    const std::vector<std::string> withValue = {"-c", "--config", "-n", "--names", "--classes"};
    for (int i = 1; i < count; ++i) {
        std::string word = words[i];
        if (std::find(withValue.begin(), withValue.end(), word) != withValue.end()) {
            ++i;
        } else if (word.empty() || word[0] != '-') {
            return word;
        }
    }
    return "";
}

/// Why the command line cannot be understood.
std::string usageFault(const CLI::App& app, const std::string& word, const CLI::ParseError& error) {
    std::vector<std::string> commands;
    for (const CLI::App* known : app.get_subcommands([](const CLI::App*) { return true; })) {
        commands.push_back(known->get_name());
    }
    const bool isKnown = std::find(commands.begin(), commands.end(), word) != commands.end();
    const std::string fault =
        word.empty() || isKnown ? shown(error.what()) : unknownName("command", word, commands);
    return fault + "; see tavrel --help";
}

/// Reads the command line and does what it says. @return the exit code
int toolMain(int count, char** words) {
    CLI::App app("Looks at the object tree of a machine and works on it, as one of its processes.", "tavrel");
    app.footer(footer);
    app.require_subcommand(1);
    app.fallthrough();

    Arguments given;
    Work chosen;
    app.add_option("-c,--config", given.files.config, "properties file of the machine")
        ->envname("TAVREL_CONFIG");
    app.add_option("-n,--names", given.files.names,
                   "names file; by default the one that the properties file names under tavrel.resolver")
        ->envname("TAVREL_NAMES");
    app.add_option("--classes", given.files.classes, "shared library with the machine's own classes")
        ->envname("TAVREL_CLASSES");
    addCommands(app, given, chosen);
    app.add_subcommand("trace", "print what the processes have traced; needs no -c")
        ->add_option("FILE", given.file, "a copy of the trace ring");

    try {
        app.parse(count, words);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            return app.exit(error, std::cout, std::cerr);
        }
        throw WrongUsage(usageFault(app, firstWord(count, words), error));
    }
    run(given, chosen);
    std::cout.flush();
    if (!std::cout) {
        throw Refusal("the output cannot be written");
    }
    return 0;
}

} // namespace

int main(int count, char** words) {
    try {
        return toolMain(count, words);
    } catch (const WrongUsage& reason) {
        return fail(reason, wrongUsage);
    } catch (const std::exception& reason) {
        return fail(reason, refused);
    }
}
