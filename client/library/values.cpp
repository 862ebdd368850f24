#include "client/library/values.h"

namespace library {

namespace {

const json_t& value_at(const json_t& object, const char* path) {
    static const json_t none;
    const json_t::json_pointer pointer(path);
    return object.contains(pointer) ? object[pointer] : none;
}

}  // namespace

std::string text_at(const json_t& object, const char* path) {
    const json_t& value = value_at(object, path);
    return value.is_string() ? value.get<std::string>() : std::string();
}

uint64_t number_at(const json_t& object, const char* path) {
    const json_t& value = value_at(object, path);
    return value.is_number_unsigned() ? value.get<uint64_t>() : 0;
}

const json_t& list_at(const json_t& object, const char* name) {
    static const json_t empty = json_t::array();
    const auto found = object.find(name);
    return found != object.end() && found->is_array() ? *found : empty;
}

std::string contact_names(const json_t& card) {
    std::string names;
    for (const json_t& contact : list_at(card, "contacts")) {
        const std::string name = text_at(contact, "/name");
        names += (names.empty() || name.empty() ? "" : ", ") + name;
    }
    return names;
}

std::string text_of(const json_t& object) {
    return object.dump(-1, ' ', true, json_t::error_handler_t::replace);
}

client::answer_t<json_t> read_object(std::string_view text) {
    json_t object = json_t::parse(text, nullptr, false);
    if (!object.is_object()) {
        return client::failure_t{.code = 0, .text = "the service's answer is not what was asked for"};
    }
    return object;
}

}  // namespace library
