// Help that fits a terminal of 80 columns.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace ozuctl {

class HelpFormatter : public CLI::Formatter {
  public:
    std::string make_help(const CLI::App *app, std::string name, CLI::AppFormatMode mode) const override;
};

// The words typed to reach a command: "ozuctl state get".
std::string pathOf(const CLI::App &command);

// The named commands right below.
std::vector<const CLI::App *> commandsOf(const CLI::App &app);

// Its options and positional arguments, those of its option groups included.
std::vector<const CLI::Option *> optionsOf(const CLI::App &app);

} // namespace ozuctl
