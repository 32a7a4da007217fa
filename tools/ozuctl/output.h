// Output of ozuctl: data on standard output, as text for people or as JSON for programs; talk on standard
// error. What cannot be written ends the command.
#pragma once

#include "bounded_json.h"
#include "colours.h"
#include "context.h"

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace ozuctl {

// To be called first: a standard stream that is closed stays unusable instead of becoming the first file that
// somebody opens, and a reader who has gone is a failed write.
void prepareStreams();

// A code with its name: {"code": 85, "name": "W3"} in JSON, "85 W3" as text.
Json coded(std::int64_t code, const std::string &name);

// UTC seconds as ISO 8601 text, e.g. 2026-03-01T12:00:00Z; with milliseconds in the second form. Times
// outside of the years 1 to 9999 become the nearest of these.
std::string isoTime(std::int64_t seconds);
std::string isoTimeMilliseconds(std::int64_t milliseconds);

// Bytes as upper-case hexadecimal text.
std::string hexText(std::span<const unsigned char> bytes);

// A JSON value as people read it, never as JSON: texts without quotes, codes as "85 W3", yes and no, "none"
// for null; lists with commas, other objects as "key=value". Fit for a line.
std::string plainText(const Json &value);

// Writes all bytes, waiting for the reader where the descriptor does not block. Returns 0, or the errno of
// the failure.
int writeAll(int fd, std::string_view bytes);

// Prints one document: with --json as it is, otherwise an object as aligned "key  value" lines, an array of
// objects as a table, anything else as text. Bytes that are not UTF-8 are replaced. Like all that writes to
// standard output, it throws CommandError(kLibraryFailed) when that cannot be done.
void print(const Context &context, const Json &document);

// Prints the document with --json, and the text's line otherwise; none for an empty text.
void print(const Context &context, const Json &document, const std::string &text);

// Prints that a change was made: a document with --json, nothing for people.
void printChanged(const Context &context, const std::string &what);

// Prints one record of a stream: a JSON line, or the text given for people, in its look.
void printRecord(const Context &context, const Json &record, const std::string &text,
                 Look look = Look::plain);

// One line of text, escaped; text of several lines, as in a help.
void writeLine(std::string_view text, Look look = Look::plain);
void writeLines(std::string_view text);

// Bytes as they are.
void writeOut(std::string_view bytes);

// For streams that have nothing to write: throws when nobody can read standard output any more.
void requireReader();

// A line on standard error. Nobody is told when it cannot be written.
void tell(std::string_view text);

// Prints how a command failed: on standard error for people; with --json also as the one document, unless
// there is one already.
void printFailure(const Context &context, const CommandError &error);

} // namespace ozuctl
