#include "resolve/resolver_cache.h"

#include <gtest/gtest.h>

#include "resolve/domain_name.h"

namespace {

using std::chrono::seconds;
using clock_type = resolver_cache::clock;

TEST(domain_name, forms_and_relations) {
  EXPECT_EQ(canonical_name("WWW.Example.TEST"), "www.example.test.");
  EXPECT_EQ(canonical_name(""), ".");
  EXPECT_EQ(parent_name("www.example.test."), "example.test.");
  EXPECT_EQ(parent_name("test."), ".");
  EXPECT_EQ(parent_name("."), ".");
  struct row {
    const char* name;
    const char* zone;
    bool within;
    const char* below;
  };
  const row rows[] = {
      {"www.example.test.", "test.", true, "example.test."},
      {"www.example.test.", ".", true, "test."},
      {"test.", "test.", true, "test."},
      {"example.test.", "example.test.", true, "example.test."},
      {"badexample.test.", "example.test.", false, ""},  // a suffix of text, not of labels
      {"other.", "test.", false, ""},
  };
  for (const row& r : rows) {
    SCOPED_TRACE(std::string(r.name) + " in " + r.zone);
    EXPECT_EQ(within_zone(r.name, r.zone), r.within);
    if (r.within) {
      EXPECT_EQ(name_below(r.name, r.zone), r.below);
    }
  }
  EXPECT_EQ(label_count("www.example.test."), 3u);
  EXPECT_EQ(name_wire("."), std::vector<std::uint8_t>{0});
  EXPECT_EQ(name_wire("a.bc."), (std::vector<std::uint8_t>{1, 'a', 2, 'b', 'c', 0}));
}

// What the cache gives back: each entry for its TTL, answers by name and type, addresses added
// to those a host has; the oldest go first when the bytes run out, and a hit is an answer found.
TEST(resolver_cache, entries_live_for_their_ttl_and_the_oldest_go_first) {
  const clock_type::time_point t0{};
  resolver_cache cache(1 << 20);
  cache.put_delegation("test.", {"ns1.test."}, 60, t0);
  cache.put_addresses("ns1.test.", {1}, 60, t0);
  cache.put_addresses("ns1.test.", {2, 1}, 60, t0);
  cache.put_answer("www.test.", 1, {}, 10, t0);
  ASSERT_NE(cache.delegation("test.", t0 + seconds(59)), nullptr);
  EXPECT_EQ(*cache.addresses("ns1.test.", t0), (std::vector<std::size_t>{1, 2}));
  EXPECT_EQ(cache.delegation("test.", t0 + seconds(60)), nullptr);
  EXPECT_NE(cache.answer("www.test.", 1, t0 + seconds(9)), nullptr);
  EXPECT_EQ(cache.answer("www.test.", 28, t0), nullptr);
  EXPECT_EQ(cache.answer("www.test.", 1, t0 + seconds(10)), nullptr);
  EXPECT_EQ(cache.hits(), 1u);

  resolver_cache small(4096);
  for (int i = 0; i < 40; ++i) small.put_delegation("z" + std::to_string(i) + ".", {"ns.example."}, 3600, t0);
  EXPECT_LE(small.bytes(), 4096u);
  EXPECT_EQ(small.delegation("z0.", t0), nullptr);
  EXPECT_NE(small.delegation("z39.", t0), nullptr);
}

}  // namespace
