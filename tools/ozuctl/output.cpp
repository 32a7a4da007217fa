#include "output.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <vector>

namespace ozuctl {

namespace {

std::string dump(const Json &value, int indent) {
    return value.dump(indent, ' ', false, Json::error_handler_t::replace);
}

// Columns as wide as their widest text; the last one is not padded.
void printColumns(const std::vector<std::vector<std::string>> &rows) {
    std::vector<std::size_t> widths;
    for (const auto &row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t column = 0; column < row.size(); ++column) {
            widths[column] = std::max(widths[column], row[column].size());
        }
    }
    for (const auto &row : rows) {
        std::string line;
        for (std::size_t column = 0; column < row.size(); ++column) {
            line += row[column];
            if (column + 1 < row.size()) {
                line.append(widths[column] - row[column].size() + 2, ' ');
            }
        }
        std::cout << line << '\n';
    }
}

void printTable(const Json &records) {
    std::vector<std::vector<std::string>> rows;
    for (const auto &record : records) {
        if (rows.empty()) {
            rows.emplace_back();
            for (const auto &[key, value] : record.items()) {
                rows.back().push_back(key);
            }
        }
        std::vector<std::string> row;
        for (const auto &[key, value] : record.items()) {
            row.push_back(plainText(value));
        }
        rows.push_back(std::move(row));
    }
    printColumns(rows);
}

void printText(const Json &document) {
    if (document.is_array() && !document.empty() && document.front().is_object()) {
        printTable(document);
        return;
    }
    if (document.is_object() && !document.contains("code")) {
        std::vector<std::vector<std::string>> rows;
        for (const auto &[key, value] : document.items()) {
            rows.push_back({key, plainText(value)});
        }
        printColumns(rows);
        return;
    }
    std::cout << plainText(document) << '\n';
}

} // namespace

Json coded(std::int64_t code, const std::string &name) {
    return {{"code", code}, {"name", name}};
}

std::string isoTime(std::int64_t seconds) {
    const auto value = static_cast<time_t>(seconds);
    tm parts = {};
    gmtime_r(&value, &parts);
    char text[32];
    return {text, strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

std::string isoTimeMilliseconds(std::int64_t milliseconds) {
    std::string text = isoTime(milliseconds / 1000);
    char fraction[16];
    snprintf(fraction, sizeof fraction, ".%03d", static_cast<int>(milliseconds % 1000));
    return text.insert(text.size() - 1, fraction);
}

std::string hexText(std::span<const unsigned char> bytes) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    for (const unsigned char byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

std::string plainText(const Json &value) {
    if (value.is_string()) {
        return value.get<std::string>();
    }
    if (value.is_boolean()) {
        return value.get<bool>() ? "yes" : "no";
    }
    if (value.is_object() && value.contains("code") && value.contains("name")) {
        return dump(value["code"], -1) + " " + value["name"].get<std::string>();
    }
    return dump(value, -1);
}

void print(const Context &context, const Json &document) {
    if (context.json) {
        std::cout << dump(document, 2) << '\n';
    } else {
        printText(document);
    }
}

void printRecord(const Context &context, const Json &record, const std::string &text) {
    std::cout << (context.json ? dump(record, -1) : text) << '\n' << std::flush;
}

} // namespace ozuctl
