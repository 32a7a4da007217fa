// ozuctl draw: a recording as a picture.

#include "commands/commands.h"
#include "drawing.h"
#include "output_file.h"
#include "text.h"

#include <memory>

namespace ozuctl {

namespace {

struct DrawOptions {
    std::string recording;
    std::string picture;
};

bool isPage(const std::string &picture) {
    return picture.ends_with(".html") || picture.ends_with(".htm");
}

std::string countWords(std::size_t count, const char *one, const char *many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

ExitCode draw(const Context &context, const DrawOptions &options) {
    if (!isPage(options.picture) && !options.picture.ends_with(".svg")) {
        throw CommandError(kUsage, "--output must end in .svg or .html, not " + inQuotes(options.picture));
    }
    const Drawing drawing = drawingOf(readRecording(options.recording));
    OutputFile file(options.picture, options.recording);
    file.write(isPage(options.picture) ? pageOf(drawing) : drawing.svg);
    file.finish();
    print(context,
          {{"file", options.picture},
           {"lanes", drawing.lanes},
           {"lanesLeftOut", drawing.lanesLeftOut},
           {"entries", drawing.happenings}},
          options.picture + ": " + countWords(drawing.happenings, "entry", "entries") + " in " +
              countWords(drawing.lanes, "lane", "lanes") +
              (drawing.lanesLeftOut == 0 ? "" : ", " + std::to_string(drawing.lanesLeftOut) + " left out"));
    return kDone;
}

} // namespace

void registerDraw(CLI::App &app, Context &context) {
    auto options = std::make_shared<DrawOptions>();
    CLI::App *command = app.add_subcommand(
        "draw", "Draw a recording of 'monitor --record': lanes for topics, fields, processes with their log, "
                "and events. Any browser shows it, without a network");
    command->add_option("FILE", options->recording, "The recording")->required();
    command->add_option("-o,--output", options->picture, "The picture, .svg or .html")
        ->type_name("FILE")
        ->required();
    command->callback(
        [options, &context] { context.command = [options, &context] { return draw(context, *options); }; });
}

} // namespace ozuctl
