// ozuctl scenario: tests of panel processes in plain text, run by the test kit's Python package.

#include "arguments.h"
#include "commands/commands.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace ozuctl {

namespace {

constexpr const char *kPython = "/usr/bin/python3"; // the one that has the system's packages
constexpr const char *kPackages = "lib/python3/dist-packages";
constexpr int kMaxJobs = 1000;

struct ScenarioOptions {
    std::vector<std::string> files;
    std::string junit;
    int jobs = 1;
    bool keep = false;
    std::string shard;
    std::vector<std::string> programs;
    std::string artefacts;
    std::string target; // folder or file that is made
};

using ScenarioWords = std::vector<std::string>;

void prepend(const char *variable, const std::string &folder) {
    const char *before = getenv(variable);
    setenv(variable, (before == nullptr ? folder : folder + ":" + before).c_str(), 1);
}

// The package stands where ozuctl was installed or built, or where the system has it.
void findPackage(const std::filesystem::path &prefix) {
    const auto packages = prefix / kPackages;
    if (exists(packages / "pytest_ozu")) {
        prepend("PYTHONPATH", packages);
    } else if (!exists(std::filesystem::path("/usr") / kPackages / "pytest_ozu")) {
        throw CommandError(kUnreachable, "the test kit is not installed",
                           "as root: apt-get install ./ozu-testkit_*.deb");
    }
}

// This process becomes the test kit; its exit status is ozuctl's.
ExitCode becomeTestKit(ScenarioWords words) {
    const auto programs = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    findPackage(programs.parent_path());
    prepend("PATH", programs);
    if (exists(programs.parent_path() / "CMakeCache.txt")) {
        setenv("OZU_TEST_BUILD", programs.parent_path().c_str(), 0);
    }
    words.insert(words.begin(), {kPython, "-m", "pytest_ozu"});
    std::vector<char *> arguments;
    for (std::string &word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    execv(kPython, arguments.data());
    throw CommandError(kUnreachable, std::string("cannot run ") + kPython + ": " + strerror(errno));
}

ExitCode runScenarios(const ScenarioOptions &options) {
    ScenarioWords words = {"run", "--jobs", std::to_string(options.jobs)};
    const auto add = [&words](const char *name, const std::string &value) {
        if (!value.empty()) {
            words.insert(words.end(), {name, value});
        }
    };
    add("--junit", options.junit);
    add("--shard", options.shard);
    add("--artefacts", options.artefacts);
    for (const std::string &folder : options.programs) {
        add("--programs", folder);
    }
    if (options.keep) {
        words.emplace_back("--keep");
    }
    words.emplace_back("--");
    words.insert(words.end(), options.files.begin(), options.files.end());
    return becomeTestKit(std::move(words));
}

void registerRun(CLI::App &group, Context &context, const std::shared_ptr<ScenarioOptions> &options) {
    CLI::App *run = group.add_subcommand("run", "Run the scenarios of feature files; 1 when one fails");
    run->add_option("FILE", options->files, "Feature files, or folders of them")->required();
    run->add_option("--junit", options->junit, "Write the results to this file as JUnit XML")
        ->type_name("FILE");
    addNumber(*run, "--jobs", options->jobs, 1, kMaxJobs, "How many panels run at a time (1)");
    run->add_flag("--keep", options->keep, "Keep what scenarios that pass leave, too");
    run->add_option("--shard", options->shard, "Every N-th scenario only, beginning with the I-th")
        ->type_name("I/N");
    run->add_option("--programs", options->programs, "Folder of the processes under test; may be given again")
        ->allow_extra_args(false)
        ->type_name("FOLDER");
    run->add_option("--artefacts", options->artefacts,
                    "Folder for what failed scenarios leave (ozu-artefacts)")
        ->type_name("FOLDER");
    run->callback([options, &context] { context.command = [options] { return runScenarios(*options); }; });
}

} // namespace

void registerScenario(CLI::App &app, Context &context) {
    auto options = std::make_shared<ScenarioOptions>();
    CLI::App *group = app.add_subcommand("scenario", "Tests of panel processes in plain text");
    group->require_subcommand(1);
    registerRun(*group, context, options);

    group->add_subcommand("steps", "List the steps that scenarios are made of")->callback([&context] {
        context.command = [] { return becomeTestKit({"steps"}); };
    });

    CLI::App *make = group->add_subcommand(
        "new", "Make a folder to start from: a panel process, its unit test, panel tests and scenarios");
    make->add_option("DIR", options->target, "The folder to make")->required();
    make->callback([options, &context] {
        context.command = [options] { return becomeTestKit({"new", "--", options->target}); };
    });

    CLI::App *merge = group->add_subcommand("merge", "Make one JUnit file of several, as shards leave them");
    merge->add_option("OUT", options->target, "The file to make")->required();
    merge->add_option("FILE", options->files, "Files to read")->required();
    merge->callback([options, &context] {
        context.command = [options] {
            ScenarioWords words = {"merge", "--", options->target};
            words.insert(words.end(), options->files.begin(), options->files.end());
            return becomeTestKit(std::move(words));
        };
    });
}

} // namespace ozuctl
