// The bytes of a mem file on their way to the server, without a server.
#include "delivery/load_source.h"

#include <array>

#include "localuser/registry_fixture.h"

class LoadSourceTest : public RegistryTest {
 protected:
  LoadSourceTest() { LoadBlocks("1380013\n"); }

  // Asks for at most `size` bytes at a time until there are no more; what came.
  static std::string ReadAll(LoadSource& source, unsigned int size) {
    std::array<char, 4096> buffer{};
    std::string text;
    for (int got = 1; got > 0;) {
      got = source.Read(buffer.data(), size);
      if (got > 0) text.append(buffer.data(), static_cast<std::size_t>(got));
    }
    return text;
  }

  std::atomic<std::uint64_t> m_progress{0};
};

TEST_F(LoadSourceTest, ShowsAllBytesOfTheFileAsReadWhateverPiecesAreAskedFor) {
  const std::string content = Record("1") + "\n" + Record("800138000") + "\n";
  const std::string with_flags = Record("1") + "\t0\n" + Record("800138000") + "\t1\n";
  for (const std::string kind : {"A", "F"}) {
    const auto file =
        MemFile::Parse("/tmp/spool/1a2b3c4d-MEM_20120101_0000" + kind + "-20120101-000000.dat");
    for (const unsigned int size : {7U, 4096U}) {
      SCOPED_TRACE(kind + " by pieces of " + std::to_string(size));
      WriteFile(file.path, content);
      m_progress = 0;
      LoadSource source(file, &m_registry, &m_progress);
      ASSERT_EQ(source.Open(), LoadSource::Opened::kReady);
      EXPECT_EQ(ReadAll(source, size), file.HasLocalFlags() ? with_flags : content);
      EXPECT_EQ(m_progress, content.size());
      EXPECT_EQ(source.lines(), 2U);
    }
  }
}

// It waited when the service was told to count every row once, or was brought back by hand.
TEST_F(LoadSourceTest, AFileThatTheOtherWayOfWorkingHasRewrittenIsReadAsItIs) {
  const auto file = MemFile::Parse("/tmp/spool/1a2b3c4d-MEM_20120101_0000F-20120101-000000.dat");
  const std::string content = Record("800138000") + "\t1\n";
  WriteFile(file.path, content);
  ASSERT_EQ(chmod(file.path.c_str(), 0644 | S_ISVTX), 0);
  LoadSource source(file, &m_registry);
  ASSERT_EQ(source.Open(), LoadSource::Opened::kReady);
  EXPECT_EQ(ReadAll(source, 4096), content);
  EXPECT_EQ(source.LogCounts(), 0U);
}
