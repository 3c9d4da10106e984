#include "spool/path_set.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

std::vector<std::string> AllOf(const PathSet& set) {
  std::vector<std::string> paths;
  for (std::string path; set.Advance(path);) paths.push_back(path);
  return paths;
}

// Names of few characters collide often and share much; the bytes are those that compare
// differently when taken as signed.
std::string RandomPath(std::mt19937& random) {
  std::string path = "/spool/1a2b3c4d/";
  const std::size_t length = random() % 7;
  for (std::size_t i = 0; i < length; ++i) path += "ab\x7f\xff"[random() % 4];
  return path;
}

TEST(PathSet, HoldsWhatASetOfStringsHoldsWhateverComesAndGoes) {
  std::mt19937 random(1);
  PathSet set;
  std::set<std::string> truth;
  for (int i = 0; i < 20'000; ++i) {
    const std::string path = RandomPath(random);
    // It grows to several blocks and shrinks to nothing, twice.
    if (random() % 10 < ((i / 5'000) % 2 == 0 ? 8 : 1)) {
      EXPECT_EQ(set.Insert(path), truth.insert(path).second);
    } else {
      set.Erase(path);
      truth.erase(path);
    }
    ASSERT_EQ(set.size(), truth.size());
    ASSERT_EQ(set.empty(), truth.empty());
    ASSERT_EQ(set.First(), truth.empty() ? "" : *truth.begin());
    std::string next = path;
    const auto behind = truth.upper_bound(path);
    ASSERT_EQ(set.Advance(next), behind != truth.end());
    ASSERT_EQ(next, behind == truth.end() ? path : *behind);
    if (i % 1'000 == 0) {
      ASSERT_THAT(AllOf(set), ElementsAreArray(truth));
    }
  }
}

TEST(PathSet, KeepsPathsThatShareMoreThanAByteCanCount) {
  const std::string folder = "/" + std::string(300, 'x') + "/";
  PathSet set;
  for (const char* name : {"b", "a", "ab", ""}) EXPECT_TRUE(set.Insert(folder + name));
  EXPECT_THAT(AllOf(set), ElementsAre(folder, folder + "a", folder + "ab", folder + "b"));
}

TEST(PathSet, ErasesAFoldersPathsAndNoOthers) {
  PathSet set;
  std::vector<std::string> others;
  for (const char* folder : {"/1/", "/10/", "/2/"}) {
    for (int i = 0; i < 200; ++i) {
      const std::string path = folder + std::to_string(i);
      set.Insert(path);
      if (path.starts_with("/1") && !path.starts_with("/10/")) others.push_back(path);
    }
  }
  set.EraseAllWithPrefix("/10/");
  set.EraseAllWithPrefix("/2/");
  set.EraseAllWithPrefix("/3/");
  std::sort(others.begin(), others.end());
  EXPECT_THAT(AllOf(set), ElementsAreArray(others));
  EXPECT_EQ(set.size(), others.size());
  set.EraseAllWithPrefix("/1");
  EXPECT_THAT(AllOf(set), IsEmpty());
  EXPECT_TRUE(set.empty());
}

}  // namespace
