// json_place.cpp: values with places; see json_place.h.
#include "json_place.h"

#include "topology.h"

#include <algorithm>
#include <set>

namespace kel
{
namespace
{
// A name as it would stand in a file: quoted, in ASCII, so that whatever is in it stays on a complaint's one line.
std::string shownName(std::string_view name)
{
    using Errors = nlohmann::json::error_handler_t;
    return nlohmann::json(name).dump(-1, ' ', true, Errors::replace);
}

// One step of a JSON pointer, without the quotes.
std::string escaped(std::string_view name)
{
    std::string step;
    for (const char c : shownName(name)) {
        if (c == '~')
            step += "~0";
        else if (c == '/')
            step += "~1";
        else
            step += c;
    }
    return step.substr(1, step.size() - 2);
}

std::string quotedList(std::initializer_list<std::string_view> words)
{
    std::string list;
    for (const std::string_view word : words)
        list.append(list.empty() ? "\"" : ", \"").append(word).append("\"");
    return list;
}

// The text behind the library's own "[json.exception.parse_error.101] ".
std::string reasonIn(const std::exception &error)
{
    const std::string text = error.what();
    const std::size_t bracket = text.find("] ");
    return bracket == std::string::npos ? text : text.substr(bracket + 2);
}
} // namespace

nlohmann::json parseJson(std::string_view text, const std::string &file)
{
    using Event = nlohmann::json::parse_event_t;
    std::vector<std::set<std::string>> fields; // of the objects that are open
    const auto watchFields = [&](int, Event event, nlohmann::json &parsed) {
        if (event == Event::object_start)
            fields.emplace_back();
        else if (event == Event::object_end)
            fields.pop_back();
        else if (event == Event::key && !fields.back().insert(parsed.get<std::string>()).second)
            throw TopologyError(file + ": the field " + shownName(parsed.get<std::string>()) + " is given twice");
        return true;
    };
    try {
        return nlohmann::json::parse(text, watchFields);
    } catch (const nlohmann::json::exception &error) {
        throw TopologyError(file + ": not JSON: " + reasonIn(error));
    }
}

void JsonPlace::refuse(const std::string &reason) const
{
    throw TopologyError(*file_ + ": " + (pointer_.empty() ? "the whole file" : pointer_) + ": " + reason);
}

std::string JsonPlace::shown() const
{
    constexpr std::size_t longest = 40;
    if (value_->is_structured())
        return value_->is_array() ? "an array" : "an object";
    const std::string text = value_->dump(-1, ' ', true);
    return text.size() <= longest ? text : text.substr(0, longest) + "...";
}

void JsonPlace::expectFields(std::initializer_list<std::string_view> fields) const
{
    if (!value_->is_object())
        refuse("must be an object, is " + shown());
    for (const auto &item : value_->items())
        if (std::ranges::find(fields, item.key()) == fields.end())
            JsonPlace(item.value(), *file_, pointer_ + "/" + escaped(item.key()))
                .refuse("is no field of this object; it has " + quotedList(fields));
}

std::optional<JsonPlace> JsonPlace::field(std::string_view name) const
{
    const auto found = value_->find(name);
    if (found == value_->end())
        return std::nullopt;
    return JsonPlace(*found, *file_, pointer_ + "/" + escaped(name));
}

JsonPlace JsonPlace::required(std::string_view name) const
{
    if (auto found = field(name))
        return *found;
    refuse("lacks the field \"" + std::string(name) + "\"");
}

std::vector<JsonPlace> JsonPlace::elements() const
{
    if (!value_->is_array())
        refuse("must be an array, is " + shown());
    std::vector<JsonPlace> elements;
    for (std::size_t at = 0; at < value_->size(); ++at)
        elements.emplace_back((*value_)[at], *file_, pointer_ + "/" + std::to_string(at));
    return elements;
}

std::uint32_t JsonPlace::integer(std::uint32_t lowest, std::uint32_t highest) const
{
    if (!value_->is_number_unsigned() || value_->get<std::uint64_t>() < lowest ||
        value_->get<std::uint64_t>() > highest)
        refuse("must be a whole number from " + std::to_string(lowest) + " to " + std::to_string(highest) + ", is " +
               shown());
    return value_->get<std::uint32_t>();
}

bool JsonPlace::boolean() const
{
    if (!value_->is_boolean())
        refuse("must be true or false, is " + shown());
    return value_->get<bool>();
}

std::string JsonPlace::text(std::size_t longest) const
{
    if (!value_->is_string())
        refuse("must be a string, is " + shown());
    const auto &text = value_->get_ref<const std::string &>();
    if (text.size() > longest)
        refuse("must have at most " + std::to_string(longest) + " bytes, has " + std::to_string(text.size()));
    if (std::ranges::any_of(text, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7F'; }))
        refuse("must not have control characters");
    return text;
}

std::size_t JsonPlace::oneOf(std::initializer_list<std::string_view> words) const
{
    const auto found =
        value_->is_string() ? std::ranges::find(words, value_->get_ref<const std::string &>()) : words.end();
    if (found == words.end())
        refuse("must be one of " + quotedList(words) + ", is " + shown());
    return static_cast<std::size_t>(found - words.begin());
}

} // namespace kel
