// Switch matching over the argument list. Matching is case-insensitive and by whole argument,
// and it consumes what it matches, so the first occurrence of a switch wins and a later
// repetition stays in the list unread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

using arg_list = std::vector<std::string>;

// True when `name` is present; the matched argument is removed.
bool take_switch(arg_list& args, std::string_view name);

// The argument after `name`; the switch and its value are removed. A switch that is the
// last argument has no value: nullopt, and it stays in the list.
std::optional<std::string> take_value(arg_list& args, std::string_view name);

// The number reader: trims blanks, tabs, CR and LF, lower-cases; hexadecimal after the first
// "x", octal after the first "o", otherwise decimal with atoi rules when the text starts with
// a digit, "+" or "-". Refused text leaves `out` unchanged and returns false.
bool read_number(std::string_view text, std::int32_t& out);

// The strict reader of the newer switches: after the same trimming, the whole text must be one
// number, decimal with an optional sign, hexadecimal after a leading "x" or "0x", or octal
// after a leading "o" or "0o", and fit in 32 bits. Anything else is refused (false, `out`
// unchanged): "12abc", "1x2", "99999999999".
bool read_whole_number(std::string_view text, std::int32_t& out);

// ASCII lower case; bytes outside A-Z pass unchanged, so UTF-8 names survive.
std::string to_lower_ascii(std::string_view text);
