// What becomes of every function that the library exports: those that no other command reaches can be called
// by name, with the arguments and outputs of this table; for each of the others it names the command.
#pragma once

#include "bounded_json.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ozuctl {

enum class ValueType { text, bytes, character, number, wide };

struct CallParameter {
    std::string_view name;
    ValueType type = ValueType::text;
    std::int64_t low = 0; // numbers only; of bytes: how many there may be
    std::int64_t high = 0;
    bool nullable = false; // the function accepts a null pointer
};

// The arguments of one call, each of the type and in the range that its parameter asks for.
struct CallValue {
    std::optional<std::string> text; // none: a null pointer
    std::vector<unsigned char> bytes;
    std::int64_t number = 0;
    std::uint64_t wide = 0;
};

class CallArguments {
  public:
    explicit CallArguments(std::vector<CallValue> values) : values_(std::move(values)) {}

    [[nodiscard]] const char *text(std::size_t place) const {
        return values_[place].text ? values_[place].text->c_str() : nullptr;
    }
    [[nodiscard]] std::size_t length(std::size_t place) const {
        return values_[place].text ? values_[place].text->size() : 0;
    }
    [[nodiscard]] const std::vector<unsigned char> &bytes(std::size_t place) const {
        return values_[place].bytes;
    }
    template <class Number>
    [[nodiscard]] Number number(std::size_t place) const {
        return static_cast<Number>(values_[place].number);
    }
    [[nodiscard]] std::uint64_t wide(std::size_t place) const { return values_[place].wide; }

  private:
    std::vector<CallValue> values_;
};

// What a call needs beyond its arguments.
enum class CallNeeds { nothing, consent, bus };

struct CallableFunction {
    std::string_view name;
    std::string_view result; // its type: "number", "text", "character", "place" or "nothing"
    std::vector<CallParameter> parameters;
    std::vector<std::string_view> outputs; // by name, all of them texts, bytes or numbers
    CallNeeds needs;
    std::string_view consent;             // "clears the kernel log"
    void (*check)(const CallArguments &); // what the caller must see to; throws CommandError(kUsage)
    // Calls it. Returns the result, null for none, and fills the outputs.
    Json (*run)(const CallArguments &arguments, Json &outputs);
};

const std::vector<CallableFunction> &callableFunctions();

struct ReachedFunction {
    std::string_view name;
    std::string_view command; // without "ozuctl"
};

const std::vector<ReachedFunction> &reachedFunctions();

// "size 0..65536", "src text"; "ozuutils_strlcpy src size".
std::string typeWords(const CallParameter &parameter);

} // namespace ozuctl
