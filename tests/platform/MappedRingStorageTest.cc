// The ring trace in a mapped file: where the file goes, and that a writer killed mid-stream leaves
// a ring that decodes cleanly.
#include "platform/MappedRingStorage.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "kernel/RingDecoder.h"
#include "kernel/Trace.h"

namespace {

class MappedRingStorageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/ringtestXXXXXX";
    ASSERT_NE(::mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
  }
  void TearDown() override {
    ::unsetenv("VELLUMDIR");
    std::filesystem::remove_all(dir_);
  }
  std::string dir_;
};

TEST_F(MappedRingStorageTest, FileNameFollowsVellumDir) {
  ::unsetenv("VELLUMDIR");
  EXPECT_EQ(Platform::ringFilePath("IgmpSnoopingDetailed"),
            "IgmpSnoopingDetailed-" + std::to_string(::getpid()) + ".vl");
  ::setenv("VELLUMDIR", dir_.c_str(), 1);
  EXPECT_EQ(Platform::ringFilePath("IgmpSnoopingDetailed"), dir_ + "/IgmpSnoopingDetailed.vl");
  EXPECT_EQ(Platform::MappedRingStorage::open(dir_ + "/missing/x.vl", 4096), nullptr);
}

// A second opener of a path never truncates what is there: the first ring, live or left by a crash,
// is renamed aside whole and stays writable through its mapping; the new ring starts empty.
TEST_F(MappedRingStorageTest, ReopeningKeepsThePreviousFileAside) {
  const std::string path = dir_ + "/IgmpSnoopingDetailed.vl";
  auto first = Platform::MappedRingStorage::open(path, 4096);
  ASSERT_TRUE(first);
  first->bytes()[0] = 0xab;
  auto second = Platform::MappedRingStorage::open(path, 4096);
  ASSERT_TRUE(second);
  EXPECT_EQ(second->bytes()[0], 0);
  first->bytes()[1] = 0xcd;
  std::vector<std::string> aside;
  for (const auto& e : std::filesystem::directory_iterator(dir_)) {
    if (e.path() != path) aside.push_back(e.path());
  }
  ASSERT_EQ(aside.size(), 1u);
  EXPECT_TRUE(aside[0].starts_with(dir_ + "/IgmpSnoopingDetailed-prev-")) << aside[0];
  EXPECT_TRUE(aside[0].ends_with("-" + std::to_string(::getpid()) + ".vl")) << aside[0];
  std::ifstream in(aside[0], std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  ASSERT_EQ(bytes.size(), 4096u);
  EXPECT_EQ(uint8_t(bytes[0]), 0xab);
  EXPECT_EQ(uint8_t(bytes[1]), 0xcd);
}

// Writes numbered messages for ever; tells the parent through `ready` once the ring has wrapped.
[[noreturn]] void writeUntilKilled(int ready) {
  Platform::installMappedRingStorage();
  Vellum::snoopVlHandle = Vellum::initialize_handle("IgmpSnoopingDetailed", std::vector<uint32_t>(10, 30));
  if (!Vellum::snoopVlHandle) ::_exit(1);
  for (uint64_t i = 0;; ++i) {
    std::string pad(i % 50, 'x');
    KIV_RING(6, "message " << i << " pad " << pad << " check " << i * 7);
    if (i == 1000) {
      char c = 1;
      if (::write(ready, &c, 1) != 1) ::_exit(1);
    }
  }
}

TEST_F(MappedRingStorageTest, WriterKilledMidStreamLeavesADecodableRing) {
  ::setenv("VELLUMDIR", dir_.c_str(), 1);
  int pipefd[2];
  ASSERT_EQ(::pipe(pipefd), 0);
  pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::close(pipefd[0]);
    writeUntilKilled(pipefd[1]);
  }
  ::close(pipefd[1]);
  char c = 0;
  ASSERT_EQ(::read(pipefd[0], &c, 1), 1);
  ::close(pipefd[0]);
  ASSERT_EQ(::kill(child, SIGKILL), 0);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));

  std::ifstream in(dir_ + "/IgmpSnoopingDetailed.vl", std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  Vellum::RingDecoder d(bytes);
  ASSERT_TRUE(d.ok()) << d.error();
  const auto& ms = d.messages();
  uint32_t slots = 30 * 1024 / Vellum::layout::slotBytes;
  // Every slot but the one being written when the kill came holds a whole, consecutive message.
  ASSERT_GE(ms.size(), slots - 1);
  ASSERT_LE(ms.size(), slots);
  uint64_t first = ms[0].seq;
  for (size_t k = 0; k < ms.size(); ++k) {
    uint64_t i = first + k - 1;
    EXPECT_EQ(ms[k].seq, first + k);
    EXPECT_EQ(ms[k].text, "message " + std::to_string(i) + " pad " + std::string(i % 50, 'x') + " check " +
                              std::to_string(i * 7));
  }
  EXPECT_GT(ms.back().seq, 1000u);  // message 1000 was written before the parent was told
}

}  // namespace
