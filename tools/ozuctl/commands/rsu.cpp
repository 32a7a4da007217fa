// ozuctl rsu: folders of firmware images for radio devices.

#include "codes.h"
#include "commands/commands.h"
#include "device_types.h"

#include <utils_ozu/names.h>
#include <utils_ozu/update_folders.h>

#include <filesystem>
#include <memory>

namespace ozuctl {

namespace {

namespace fs = std::filesystem;

constexpr int kDeviceTypes = 256;
constexpr const char *kNoFolder = "UNKNOWN";

struct Content {
    bool exists = false;
    std::uintmax_t files = 0;
    std::uintmax_t bytes = 0;
};

// What lies below a folder; links are counted, not followed.
Content imagesIn(const std::string &folder) {
    Content content;
    std::error_code ignored;
    content.exists = fs::is_directory(folder, ignored);
    const auto options = fs::directory_options::skip_permission_denied;
    for (auto entry = fs::recursive_directory_iterator(folder, options, ignored);
         entry != fs::recursive_directory_iterator(); entry.increment(ignored)) {
        if (entry->is_symlink(ignored) || !entry->is_directory(ignored)) {
            ++content.files;
            content.bytes += entry->is_symlink(ignored) || !entry->is_regular_file(ignored)
                                 ? 0
                                 : entry->file_size(ignored);
        }
    }
    return content;
}

Json row(int type) {
    const std::string folder = ozuutils_getRsuFolder(type);
    const Content content = imagesIn(folder);
    return {{"type", coded(type, getDeviceTypeName(type))},
            {"folder", folder},
            {"exists", content.exists},
            {"files", content.files},
            {"bytes", content.bytes}};
}

int requireFolder(const std::string &word) {
    const int type = deviceTypeOf(word);
    if (std::string(ozuutils_getRsuFolder(type)) == kNoFolder) {
        throw CommandError(
            kNo, "device type " + plainText(coded(type, getDeviceTypeName(type))) + " has no update folder",
            "'ozuctl rsu list' shows those that have.");
    }
    return type;
}

ExitCode list(const Context &context, const std::string &word) {
    Json rows = Json::array();
    if (!word.empty()) {
        rows.push_back(row(requireFolder(word)));
    }
    for (int type = 0; word.empty() && type < kDeviceTypes; ++type) {
        if (std::string(ozuutils_getRsuFolder(type)) != kNoFolder) {
            rows.push_back(row(type));
        }
    }
    print(context, rows);
    return kDone;
}

ExitCode removeFiles(const Context &context, const std::string &word) {
    const int type = requireFolder(word);
    const std::string folder = ozuutils_getRsuFolder(type);
    context.requireConsent("deletes everything in " + folder);
    std::error_code ignored;
    const bool exists = fs::is_directory(folder, ignored);
    if (const int result = ozuutils_removeRsuFile(type); result != 0) {
        const std::string what = exists
                                     ? "not everything in " + folder + " could be deleted; its log says why"
                                     : "there is no folder " + folder + ": nothing was deleted";
        throw CommandError(kLibraryFailed, what + " (" + libraryCode(result) + ")",
                           exists ? "" : "'ozuctl rsu list' shows the folders that exist.");
    }
    printChanged(context, folder);
    return kDone;
}

} // namespace

void registerRsu(CLI::App &app, Context &context) {
    auto word = std::make_shared<std::string>();
    CLI::App *rsu = app.add_subcommand("rsu", "Firmware images for radio devices");
    rsu->require_subcommand(1);

    CLI::App *command = rsu->add_subcommand("list", "Update folders and what is in them");
    command->add_option("TYPE", *word, "Device type, code or name; by default all");
    command->callback(
        [word, &context] { context.command = [word, &context] { return list(context, *word); }; });

    command = rsu->add_subcommand("remove", "Empty an update folder; asks for --yes outside of a panel box");
    command->add_option("TYPE", *word, "Device type, code or name")->required();
    command->callback(
        [word, &context] { context.command = [word, &context] { return removeFiles(context, *word); }; });
}

} // namespace ozuctl
