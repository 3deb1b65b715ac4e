// The usage text.
#pragma once

#include <ostream>
#include <string_view>

void print_usage(std::ostream& out, std::string_view program_path, std::string_view tool_id);
