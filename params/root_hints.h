// Where an iterative run starts: the root servers' addresses, from the published table built in
// or from -roots FILE, either a hints file in master-file form (". NS a.root-servers.net." and the
// A and AAAA lines of those names) or one address a line, for private roots and tests.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

struct root_hints {
  std::vector<std::string> addresses;  // IPv4 and IPv6 texts
  std::size_t bad_line = 0;            // the first line that reads as neither form (1-based); 0: none
};

// The thirteen root servers' published IPv4 and IPv6 addresses.
root_hints builtin_root_hints();
// A hints file's addresses: from the A and AAAA lines (a TTL and the class IN may stand between
// the owner and the type; ";" starts a comment), or lines that hold one address alone.
root_hints read_root_hints(std::string_view text);
