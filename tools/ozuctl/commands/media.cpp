// ozuctl jpeg, country: images and country codes.

#include "commands/commands.h"
#include "files.h"
#include "log_tap.h"

#include <utils_ozu/country.h>
#include <utils_ozu/jpeg.h>

#include <cstdio>
#include <memory>

namespace ozuctl {

namespace {

constexpr std::uint64_t kMaxVideoBytes = std::uint64_t{1} << 30; // no camera sends more

// What follows a beginning in the lines of the library; empty when none begins so.
std::string after(const std::vector<LoggedLine> &lines, const std::string &beginning) {
    for (const auto &line : lines) {
        if (line.text.compare(0, beginning.size(), beginning) == 0) {
            return line.text.substr(beginning.size());
        }
    }
    return {};
}

// The decoder's complaint, without the brackets that the log puts around it.
std::string complaint(const std::vector<LoggedLine> &lines) {
    for (const char *beginning : {"error_exit [", "output_message ["}) {
        if (const std::string text = after(lines, beginning); !text.empty()) {
            return text.substr(0, text.rfind(']'));
        }
    }
    return "no memory for an image of this size";
}

Json examine(const std::string &path, bool &valid) {
    const std::string content = contentOf(path, kMaxVideoBytes);
    const auto lines = linesOf([&] {
        valid = ozuutils_jpegValidator(reinterpret_cast<const unsigned char *>(content.data()),
                                       content.size()) == 0;
    });
    int width = 0, height = 0, components = 0;
    // NOLINTNEXTLINE(cert-err34-c): the library's own line
    const bool sized = sscanf(after(lines, "Proc: Image is ").c_str(), "%d by %d with %d", &width, &height,
                              &components) == 3;
    Json row = {{"file", path}, {"verdict", valid ? "valid" : "damaged"}, {"bytes", content.size()}};
    row["size"] = sized ? Json(std::to_string(width) + "x" + std::to_string(height)) : Json(nullptr);
    row["components"] = sized ? Json(components) : Json(nullptr);
    row["reason"] = valid ? Json(nullptr) : Json(complaint(lines));
    return row;
}

ExitCode runJpeg(const Context &context, const std::vector<std::string> &files) {
    Json rows = Json::array();
    bool allValid = true;
    for (const auto &file : files) {
        bool valid = false;
        rows.push_back(examine(file, valid));
        allValid = allValid && valid;
    }
    print(context, rows);
    return allValid ? kDone : kNo;
}

ExitCode runCountry(const Context &context, const std::vector<std::string> &names) {
    Json rows = Json::array();
    bool allFound = true;
    for (const auto &name : names) {
        char alpha2[3], alpha3[4], numeric[4];
        bool found = false;
        // An unknown country is told by the answer; its log line adds nothing.
        static_cast<void>(
            linesOf([&] { found = get_country_codes(name.c_str(), alpha2, alpha3, numeric) == 1; }));
        rows.push_back({{"country", name},
                        {"found", found},
                        {"alpha2", alpha2},
                        {"alpha3", alpha3},
                        {"numeric", numeric}});
        allFound = allFound && found;
    }
    print(context, rows);
    return allFound ? kDone : kNo;
}

} // namespace

void registerMedia(CLI::App &app, Context &context) {
    CLI::App *jpeg = app.add_subcommand("jpeg", "Tell whether images decode completely and cleanly");
    auto files = std::make_shared<std::vector<std::string>>();
    jpeg->add_option("file", *files, "Pictures; exit status 1 when one is damaged or missing")->required();
    jpeg->callback(
        [&context, files] { context.command = [&context, files] { return runJpeg(context, *files); }; });

    CLI::App *country =
        app.add_subcommand("country", "ISO 3166 codes of countries; those of Spain for an unknown one");
    auto names = std::make_shared<std::vector<std::string>>();
    country->add_option("name", *names, "Countries; exit status 1 when one is not found")->required();
    country->callback(
        [&context, names] { context.command = [&context, names] { return runCountry(context, *names); }; });
}

} // namespace ozuctl
