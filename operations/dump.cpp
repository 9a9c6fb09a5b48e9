// utils_sse_operations: prints the table of operations as JSON, for the reference page, scripts and other languages.
#include "operations.h"

#include <cstdio>
#include <iostream>
#include <sstream>

namespace {

using operations::Argument;
using operations::Operation;
using operations::Role;

std::string quoted(const std::string& text)
{
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            result += '\\';
        result += c;
    }
    return result + "\"";
}

template <class List, class Print>
std::string listed(const List& list, Print print, const std::string& separator = ", ")
{
    std::string text;
    for (const auto& item : list)
        text += (text.empty() ? "" : separator) + print(item);
    return text;
}

std::string number(double value)
{
    std::ostringstream text;
    text << value;
    return text.str();
}

std::string role_name(Role role)
{
    switch (role) {
    case Role::in:
        return "in";
    case Role::out:
        return "out";
    case Role::inout:
        return "inout";
    case Role::count:
        return "count";
    case Role::scalar:
        return "scalar";
    }
    return "";
}

std::string json(const Argument& argument)
{
    std::string text = "{\"name\": " + quoted(argument.name) + ", \"role\": " + quoted(role_name(argument.role)) +
                       ", \"type\": " + quoted(argument.type);
    if (argument.is_array()) {
        text +=
            ", \"element_size\": " + std::to_string(argument.is_list() ? argument.listed_element_size : argument.element_size);
        text += ", \"extent\": " + quoted(argument.extent.text);
        text += ", \"reads_before\": " + quoted(argument.reads_before.formula ? argument.reads_before.text : "0");
        text += ", \"reads_beyond\": " + quoted(argument.reads_beyond.formula ? argument.reads_beyond.text : "0");
        text += ", \"alignment\": " + std::to_string(argument.alignment ? argument.alignment : argument.element_size);
        if (argument.aligned_where.formula)
            text += ", \"aligned_where\": " + quoted(argument.aligned_where.text);
        if (argument.is_list())
            text += ", \"extent_of_each\": " + quoted(argument.listed.text);
    } else if (argument.role == Role::scalar) {
        text += ", \"typical\": " + number(argument.typical);
    } else if (argument.is_length) {
        text += ", \"length\": true";
    } else if (argument.swept_from.formula) {
        text += ", \"typical\": " + quoted(argument.swept_from.text);
    } else {
        text += ", \"typical\": " + number(argument.typical);
    }
    if (argument.most)
        text += ", \"at_most\": " + std::to_string(argument.most);
    return text + "}";
}

std::string json(const Operation& operation)
{
    const auto name_of = [&](std::size_t index) { return quoted(operation.arguments[index].name); };
    const auto set_of_names = [&](const std::vector<std::size_t>& set) { return "[" + listed(set, name_of) + "]"; };
    std::string text = "    {\"name\": " + quoted(operation.name) + ", \"overload\": " + quoted(operation.overload) +
                       ",\n     \"signature\": " + quoted(operation.signature()) + ", \"result\": " + quoted(operation.result) +
                       ",\n     \"section\": " + quoted(operation.section) + ", \"room\": " + quoted(operation.room) +
                       ", \"instruction_set\": " + quoted(operation.instruction_set) +
                       ", \"block\": " + std::to_string(operation.block) + ",\n     \"arguments\": [\n      ";
    text += listed(
        operation.arguments, [](const Argument& argument) { return json(argument); }, ",\n      ");
    text += "],\n     \"may_equal\": [" + listed(operation.equal, set_of_names) + "],\n     \"body_and_tail\": ";
    text += operation.body_and_tail.empty() ? "null" : quoted(operation.body_and_tail);
    text += ",\n     \"may_equal_sometimes\": ";
    text += operation.equal_sometimes.empty() ? "null" : quoted(operation.equal_sometimes);
    text += ",\n     \"writes_beyond\": ";
    text += operation.writes_beyond.empty() ? "null" : quoted(operation.writes_beyond);
    text += ",\n     \"own_cases\": ";
    text += operation.own_cases.empty() ? "null" : quoted(operation.own_cases);
    return text + "}";
}

std::string json(const operations::Export& other)
{
    return "    {\"section\": " + quoted(other.section) + ", \"result\": " + quoted(other.result) +
           ", \"signature\": " + quoted(other.signature) + "}";
}

} // namespace

int main()
{
    std::cout << "{\n  \"operations\": [\n"
              << listed(
                     operations::all(), [](const Operation& operation) { return json(operation); }, ",\n")
              << "\n  ],\n  \"other_exports\": [\n"
              << listed(
                     operations::other_exports(), [](const operations::Export& other) { return json(other); }, ",\n")
              << "\n  ]\n}\n";
    return std::cout.flush() ? 0 : 1;
}
