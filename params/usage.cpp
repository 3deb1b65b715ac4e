#include "params/usage.h"

#include <string>

#include "params/cmd_params.h"

namespace {

// Kept byte for byte: scripts and documentation quote it. The blank-only line after "usage:"
// and the trailing blanks that pad the piped lines to one width are part of the text.
constexpr const char* k_usage_body =
    "usage:\n"
    " \n"
    " zib -url <domain to lookup> -server <dns srv ip>\n"
    " zib -ip <ip addr to lookup> -server <dns srv ip>\n"
    " zib -mx <mail host to lookup> -server <dns srv ip>\n"
    " zib -ns <domain to lookup> -server <dns srv ip>\n"
    " zib -cname <domain to lookup> -server <dns srv ip>\n"
    " zib -txt <url to query> -server <dns srv ip>\n"
    "\n"
    "These versions use STDIN for piping in input:\n"
    " zib -url_pipe -server <dns srv ip>  \n"
    " zib -ip_pipe -server <dns srv ip>   \n"
    " zib -mx_pipe -server <dns srv ip>   \n"
    " zib -ns_pipe -server <dns srv ip>   \n"
    " zib -cname_pipe -server <dns srv ip>\n"
    " zib -txt_pipe -server <dns srv ip>  \n"
    "\n"
    "Available options:\n"
    "  -timeout <in secs>\n"
    "  -retry <num>           = if we timeout, num of retries\n"
    "  -delay <secs>          = delay in secs between each query\n"
    "  -xml                   = output the data in xml format\n"
    "  -csv                   = output in comma separated value format\n"
    "  -verbose               = shows std::hex dump of packets (not in xml mode)\n"
    "  -no_whitespace         = remove whitespace between csv delimiter\n"
    "  -csv_separator \"|\"     = use a pipe char for csv separator\n"
    "  -dateformat mm/dd/yyyy = \"yyyy-mm-dd\" is the default\n"
    "  -timeformat hh:mm:ss   = \"hh:mm:ss.xxx\" is the default\n"
    "  -filter <*partial*>    = filters data from stdin using pipe\n"
    "\n"
    "example of using std input and redirecting the output to a file\n"
    " cat hosts.txt | ./zib -url_pipe -server 8.8.8.8 > ./results.txt\n"
    "\n";

constexpr std::size_t k_rule_width = 77;

}  // namespace

// The command lines show the tool's name rather than the path it was started by, so the text
// reads the same however the tool was installed or invoked; the path is accepted for callers
// that want to print it elsewhere.
void print_usage(std::ostream& out, std::string_view /*program_path*/, std::string_view tool_id) {
  out << k_tool_name << ' ' << k_tool_version << " - DNS lookups over UDP, one question per name\n"
      << "reports as text, CSV or XML; options not listed here (-port): man zib\n"
      << std::string(k_rule_width, '-') << "\n\n"
      << tool_id << "\n\n"
      << k_usage_body;
  out.flush();
}
