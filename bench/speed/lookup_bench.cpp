// What one lookup of a number block costs, beside the ordered set of texts that it replaces.
#include <random>
#include <set>
#include <string>
#include <vector>

#include "benchmark/benchmark.h"
#include "localuser/block_set.h"

namespace {

constexpr std::uint32_t kFirstBlock = 1'300'000;
constexpr std::uint32_t kRange = 600'000;  // of the blocks in use and of those asked for

// `count` texts of seven digits each, the same ones for every benchmark.
std::vector<std::uint32_t> Blocks(std::int64_t count, unsigned int seed) {
  std::mt19937 random(seed);
  std::vector<std::uint32_t> blocks;
  for (std::int64_t i = 0; i < count; ++i) {
    blocks.push_back(kFirstBlock + static_cast<std::uint32_t>(random()) % kRange);
  }
  return blocks;
}

template <typename Set, typename Key, typename Contains>
void Lookup(benchmark::State& state, Key key, Contains contains) {
  Set set;
  for (const std::uint32_t block : Blocks(state.range(0), 1)) set.insert(std::to_string(block));
  const auto asked = Blocks(4096, 2);
  std::size_t next = 0;
  for ([[maybe_unused]] auto _ : state) {
    benchmark::DoNotOptimize(contains(set, key(asked[next++ % asked.size()])));
  }
}

void ByNumber(benchmark::State& state) {
  Lookup<BlockSet>(
      state, [](std::uint32_t block) { return block; },
      [](const BlockSet& set, std::uint32_t block) { return set.containsBlock(block); });
}
void ByText(benchmark::State& state) {
  Lookup<BlockSet>(
      state, [](std::uint32_t block) { return std::to_string(block); },
      [](const BlockSet& set, const std::string& block) { return set.contains(block); });
}
void InSetOfTexts(benchmark::State& state) {
  Lookup<std::set<std::string>>(
      state, [](std::uint32_t block) { return std::to_string(block); },
      [](const std::set<std::string>& set, const std::string& block) {
        return set.contains(block);
      });
}

BENCHMARK(ByNumber)->Arg(200'000)->Arg(400'000);
BENCHMARK(ByText)->Arg(200'000)->Arg(400'000);
BENCHMARK(InSetOfTexts)->Arg(200'000)->Arg(400'000);

}  // namespace

BENCHMARK_MAIN();
