// json_place.h: a value in a JSON file together with its place, so that each complaint can name file, place and reason.
#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kel
{

// Parses a text; throws TopologyError for what is no JSON, with line and column, and for a field that is given twice.
nlohmann::json parseJson(std::string_view text, const std::string &file);

// A borrowed value; the document and the file name outlive it. All functions that ask for a kind of value throw
// TopologyError when the value is of another kind.
class JsonPlace
{
public:
    JsonPlace(const nlohmann::json &value, const std::string &file, std::string pointer = {})
        : value_(&value), file_(&file), pointer_(std::move(pointer))
    {
    }

    // Throws "FILE: POINTER: REASON".
    [[noreturn]] void refuse(const std::string &reason) const;

    // An object that has no other fields than these.
    void expectFields(std::initializer_list<std::string_view> fields) const;

    bool isNumber() const
    {
        return value_->is_number();
    }
    std::optional<JsonPlace> field(std::string_view name) const; // of an object
    JsonPlace required(std::string_view name) const;             // of an object
    std::vector<JsonPlace> elements() const;                     // of an array
    std::uint32_t integer(std::uint32_t lowest, std::uint32_t highest) const;
    bool boolean() const;
    // At most `longest` bytes, none of them a control character.
    std::string text(std::size_t longest) const;
    // The place of the word in `words`.
    std::size_t oneOf(std::initializer_list<std::string_view> words) const;

private:
    std::string shown() const; // the value, as far as a complaint shows it

    const nlohmann::json *value_;
    const std::string *file_;
    std::string pointer_; // RFC 6901
};

} // namespace kel
