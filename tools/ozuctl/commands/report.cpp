// ozuctl report: one archive for support.

#include "report.h"
#include "archive.h"
#include "commands/commands.h"
#include "output_file.h"
#include "text.h"
#include "timeline.h"

#include <memory>
#include <optional>

namespace ozuctl {

namespace {

Json contentsOf(const Report &report) {
    Json rows = Json::array();
    for (const ReportEntry &entry : report.entries) {
        rows.push_back({{"name", entry.name},
                        {"what", entry.what},
                        {"bytes", entry.content.size()},
                        {"cut", entry.cut}});
    }
    return rows;
}

void writeContents(const Report &report) {
    for (const ReportEntry &entry : report.entries) {
        writeLine("takes " + entry.name + ", " + std::to_string(entry.content.size()) +
                  " bytes: " + visible(entry.what) + (entry.cut ? " (its end)" : ""));
    }
    for (const std::string &words : report.leftOut) {
        writeLine("leaves out " + words);
    }
}

ExitCode report(const Context &context, const std::optional<std::string> &path) {
    const Report gathered = gatherReport();
    if (!context.json) {
        writeContents(gathered);
    }
    Archive archive(nowMilliseconds());
    for (const ReportEntry &entry : gathered.entries) {
        archive.add("ozu-report/" + entry.name, entry.content);
    }
    const std::string bytes = archive.finished();
    if (path) {
        OutputFile file(*path, {}, 0600);
        file.write(bytes);
        file.finish();
    }
    print(context,
          {{"file", path ? Json(*path) : Json(nullptr)},
           {"bytes", bytes.size()},
           {"contents", contentsOf(gathered)},
           {"leftOut", gathered.leftOut}},
          !path ? "" : *path + ": " + std::to_string(bytes.size()) + " bytes");
    return kDone;
}

} // namespace

void registerReport(CLI::App &app, Context &context) {
    auto path = std::make_shared<std::optional<std::string>>();
    CLI::App *command = app.add_subcommand(
        "report",
        "One archive (tar) for support: lists what it takes and leaves out, then writes it. Without "
        "-o it only lists. Secrets are left out");
    command->add_option("-o,--output", *path, "The archive; readable by its owner only")->type_name("FILE");
    command->callback(
        [path, &context] { context.command = [path, &context] { return report(context, *path); }; });
}

} // namespace ozuctl
