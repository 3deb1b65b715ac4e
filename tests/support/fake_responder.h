// A scriptable DNS responder for network tests: it binds UDP port 53 on its own 127.0.0.x
// address and answers each datagram it receives by the next action of its script (echo the
// query with a reply body, use a foreign ID, stay silent, send raw bytes, ...), from a
// background thread that lives for a bounded time. It records what it received and sent.
//
// ctest runs every test as its own process in parallel, so each test takes its own address:
// 127.0.0.100-149 for the transport tests, 127.0.0.150-199 for the driver's end-to-end tests.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace fake {

using bytes = std::vector<std::uint8_t>;
using std::chrono::milliseconds;

// One resource record of a scripted reply.
struct record {
  bytes owner;  // wire form; empty stands for a pointer to the question name (offset 12)
  std::uint16_t type = 1;
  std::uint16_t class_ = 1;
  std::uint32_t ttl = 300;
  bytes rdata;
};

// What a reply holds after its header. The ID and the question are copied from the query.
struct reply_body {
  std::uint8_t flags_high = 0x81;  // QR and RD
  std::uint8_t flags_low = 0x80;   // RA, NOERROR
  bool with_question = true;
  std::vector<record> answers;
  std::vector<record> authority;
  std::vector<record> additional;
};

// "a.example." or "a.example" to length-prefixed labels and the root byte.
bytes wire_name(std::string_view dotted);

// Copies the query's ID and question, sets the counts from `body` and appends its records.
bytes build_reply(std::span<const std::uint8_t> query, const reply_body& body);

// Offset just past the question of `query` (12 when it holds none or is malformed).
std::size_t question_end(std::span<const std::uint8_t> query);

record a_record(std::array<std::uint8_t, 4> address, std::uint32_t ttl = 300);
record soa_record(std::string_view mname, std::string_view rname, std::uint32_t serial);

struct action {
  enum class kind { silent, reply, raw };
  kind what = kind::silent;
  reply_body body;             // kind::reply
  bytes raw;                   // kind::raw: sent exactly as given, even when empty
  bool foreign_id = false;     // both ID bytes inverted, so the reply never matches
  bool from_elsewhere = false; // sent from a fresh unbound socket instead of port 53
  milliseconds delay{0};
};

action silent();
action reply(reply_body body = {});
action answer_a(std::array<std::uint8_t, 4> address = {192, 0, 2, 1});
action empty_datagram();
action raw_bytes(bytes raw);
action question_only();
action no_such_name();  // NXDOMAIN: the question and an SOA in the authority section
// Modifiers: the ID bytes inverted, the reply held back, the reply sent from another socket.
action foreign_id(action a = answer_a());
action delayed(action a, milliseconds delay);
action from_elsewhere(action a);

struct datagram {
  bytes data;
  std::chrono::steady_clock::time_point at;
  std::uint16_t port = 0;  // the sender's, host order
};

class responder {
 public:
  // Datagrams past the end of the script get `otherwise`. The thread stops by itself after
  // `lifetime`, so a test that forgets it cannot hang the run.
  responder(std::string address, std::vector<action> script, action otherwise = silent(),
            milliseconds lifetime = std::chrono::seconds(30));
  ~responder();
  responder(const responder&) = delete;
  responder& operator=(const responder&) = delete;

  bool ready() const { return m_fd != -1; }
  const std::string& why_not() const { return m_why_not; }  // why the bind failed
  const std::string& address() const { return m_address; }

  std::vector<datagram> received() const;
  std::vector<bytes> sent() const;  // the replies, in the order sent
  // Wait (bounded) until `count` datagrams came in or `count` replies went out; true when so.
  bool wait_for_received(std::size_t count, milliseconds limit = std::chrono::seconds(5)) const;
  bool wait_for_sent(std::size_t count, milliseconds limit = std::chrono::seconds(5)) const;
  void stop();

 private:
  void serve(std::chrono::steady_clock::time_point deadline);
  void answer(const datagram& query, const void* sender, const action& a);
  bool pause(milliseconds delay) const;
  template <class Count>
  bool wait_until(Count count_now, std::size_t count, milliseconds limit) const;

  std::string m_address;
  std::vector<action> m_script;
  action m_otherwise;
  std::string m_why_not;
  int m_fd = -1;
  std::atomic<bool> m_stop{false};
  mutable std::mutex m_mutex;
  std::vector<datagram> m_received;
  std::vector<bytes> m_sent;
  std::thread m_thread;
};

}  // namespace fake

// Starts a responder named `var`, or skips the test with the reason when port 53 on its
// address cannot be bound (not root, or a loopback that answers only 127.0.0.1).
#define FAKE_RESPONDER_OR_SKIP(var, ...)     \
  fake::responder var(__VA_ARGS__);          \
  if (!var.ready()) GTEST_SKIP() << var.why_not()
