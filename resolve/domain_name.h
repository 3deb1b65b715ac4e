// Domain names as the iterative resolver compares them: lower-case text with a dot after every
// label ("zone5.example."), the root as ".". Names read out of messages by the one name decoder
// come as such text; a label that holds a dot of its own (which no zone on the way uses) is then
// taken as two, which at worst asks a question that gets no answer.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// Lower case, with the final dot; "" and "." are the root.
std::string canonical_name(std::string_view text);
// The name one label up; the root's parent is the root.
std::string parent_name(std::string_view name);
// True when `name` is `zone` or below it.
bool within_zone(std::string_view name, std::string_view zone);
std::size_t label_count(std::string_view name);
// The name under `zone` on the way to `name` (`name` itself when it is one label below): what a
// query for `name` at `zone` learns about first.
std::string name_below(std::string_view name, std::string_view zone);
// The wire form for a query; the root is one zero byte.
std::vector<std::uint8_t> name_wire(std::string_view name);
