// The system's files, in a folder that each test has of its own.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "tools/gateway/files/FileLayer.h"

namespace kestrin::gateway {
namespace {

using Bytes = std::vector<std::uint8_t>;
using testing::HasSubstr;

class PosixFiles : public testing::Test {
 public:
  ~PosixFiles() override { std::filesystem::remove_all(folder_); }

 protected:
  PosixFiles() {
    std::string pattern = testing::TempDir() + "kestrin-files-XXXXXX";
    folder_ = ::mkdtemp(pattern.data());
  }

  std::shared_ptr<LogFile> file(const std::string& name, bool create) {
    return files_->open(folder_ + "/" + name, create, error_);
  }
  static Bytes content(const LogFile& file, std::uint64_t from, std::size_t most) {
    Bytes bytes(most);
    std::size_t count = 0;
    EXPECT_FALSE(file.read(from, bytes, count));
    bytes.resize(count);
    return bytes;
  }

  std::string folder_;
  FileError error_;
  const std::shared_ptr<FileLayer> files_ = systemFiles();
};

TEST_F(PosixFiles, WhatIsAppendedIsReadFromAnyPlace) {
  const auto written = file("a", true);
  ASSERT_TRUE(written) << error_.text;
  EXPECT_FALSE(written->append(Bytes{1, 2, 3}));
  EXPECT_FALSE(written->append(Bytes{4, 5}));
  EXPECT_FALSE(written->sync());
  EXPECT_EQ(written->size(), 5U);
  EXPECT_EQ(content(*written, 1, 3), (Bytes{2, 3, 4}));
  EXPECT_EQ(content(*written, 3, 10), (Bytes{4, 5}));
  EXPECT_EQ(content(*written, 9, 10), Bytes{});
}

TEST_F(PosixFiles, AFileThatIsOpenedAgainGoesOnAtItsEnd) {
  const auto made = file("a", true);
  ASSERT_FALSE(made->append(Bytes{8, 9}));
  EXPECT_TRUE(made->overwrite(1, Bytes{2, 3}));
  ASSERT_FALSE(made->overwrite(0, Bytes{1, 2}));
  EXPECT_EQ(made->size(), 2U);
  const auto again = file("a", false);
  ASSERT_TRUE(again) << error_.text;
  EXPECT_FALSE(again->append(Bytes{3}));
  EXPECT_EQ(content(*again, 0, 10), (Bytes{1, 2, 3}));
}

TEST_F(PosixFiles, AppendingGoesOnWhereAFileWasCut) {
  const auto written = file("a", true);
  EXPECT_FALSE(written->append(Bytes{1, 2, 3}));
  EXPECT_FALSE(written->truncate(1));
  EXPECT_FALSE(written->append(Bytes{9}));
  EXPECT_EQ(content(*written, 0, 10), (Bytes{1, 9}));
}

TEST_F(PosixFiles, AFileBeyondTwoGibibytesIsOpenedAndReadAtItsEnd) {
  constexpr std::uint64_t kThreeGibibytes = 3ULL << 30U;
  const auto made = file("a", true);
  ASSERT_FALSE(made->truncate(kThreeGibibytes));  // A hole, which takes no room.
  ASSERT_FALSE(made->append(Bytes{7, 8}));
  const auto again = file("a", false);
  ASSERT_TRUE(again) << error_.text;
  EXPECT_EQ(again->size(), kThreeGibibytes + 2);
  EXPECT_EQ(content(*again, kThreeGibibytes, 10), (Bytes{7, 8}));
}

TEST_F(PosixFiles, CreatingWhatIsThereFailsAndKeepsIt) {
  ASSERT_FALSE(file("a", true)->append(Bytes{7}));
  EXPECT_FALSE(file("a", true));
  EXPECT_EQ(error_.number, EEXIST);
  EXPECT_THAT(error_.text, HasSubstr(folder_ + "/a"));
  EXPECT_EQ(content(*file("a", false), 0, 10), Bytes{7});
}

TEST_F(PosixFiles, OpeningWhatIsNotThereSaysSo) {
  EXPECT_FALSE(file("a", false));
  EXPECT_EQ(error_.number, ENOENT);
  EXPECT_THAT(error_.text, HasSubstr("cannot open " + folder_ + "/a"));
}

TEST_F(PosixFiles, AFullDiskIsReportedWithItsNumber) {
  const auto full = files_->open("/dev/full", false, error_);
  ASSERT_TRUE(full) << error_.text;
  const auto error = full->append(Bytes{1});
  ASSERT_TRUE(error);
  EXPECT_EQ(error->number, ENOSPC);
  EXPECT_EQ(full->size(), 0U);
}

TEST_F(PosixFiles, FoldersAreMadeWithThoseAboveThem) {
  EXPECT_FALSE(files_->makeFolder(folder_ + "/a/b/c/"));
  EXPECT_TRUE(std::filesystem::is_directory(folder_ + "/a/b/c"));
  EXPECT_FALSE(files_->makeFolder(folder_ + "/a/b/c"));
  EXPECT_FALSE(files_->syncFolder(folder_ + "/a"));
}

TEST_F(PosixFiles, AFileInTheWayOfAFolderIsReported) {
  file("a", true);
  const auto error = files_->makeFolder(folder_ + "/a");
  ASSERT_TRUE(error);
  EXPECT_EQ(error->number, ENOTDIR);
  EXPECT_TRUE(files_->makeFolder(folder_ + "/a/b"));
}

TEST_F(PosixFiles, NamesAreListedInOrder) {
  file("b", true);
  file("a", true);
  ASSERT_FALSE(files_->makeFolder(folder_ + "/c"));
  std::vector<std::string> names;
  EXPECT_FALSE(files_->list(folder_, names));
  EXPECT_EQ(names, (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_TRUE(files_->list(folder_ + "/missing", names));
}

TEST_F(PosixFiles, ARenamedFileTakesThePlaceOfAnother) {
  ASSERT_FALSE(file("a", true)->append(Bytes{1}));
  ASSERT_FALSE(file("b", true)->append(Bytes{2}));
  EXPECT_FALSE(files_->rename(folder_ + "/a", folder_ + "/b"));
  EXPECT_EQ(content(*file("b", false), 0, 10), Bytes{1});
  EXPECT_FALSE(file("a", false));
  EXPECT_FALSE(files_->remove(folder_ + "/b"));
  EXPECT_TRUE(files_->remove(folder_ + "/b"));
}

TEST_F(PosixFiles, OneFolderIsHeldOnceAndWhoHoldsItIsNamed) {
  auto held = files_->lock(folder_, error_);
  ASSERT_TRUE(held) << error_.text;
  EXPECT_FALSE(systemFiles()->lock(folder_, error_));
  EXPECT_EQ(error_.text,
            folder_ + " is in use by another process (" + std::to_string(::getpid()) + ")");
  held.reset();
  EXPECT_TRUE(systemFiles()->lock(folder_, error_)) << error_.text;
}

TEST_F(PosixFiles, AFolderOfAKilledProcessCanBeHeldAgain) {
  std::array<int, 2> pipe{};
  ASSERT_EQ(::pipe(pipe.data()), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    FileError error;
    const auto held = systemFiles()->lock(folder_, error);
    [[maybe_unused]] const ssize_t count = ::write(pipe[1], held ? "y" : "n", 1);
    while (true) ::pause();
  }
  char locked = 0;
  ASSERT_EQ(::read(pipe[0], &locked, 1), 1);
  EXPECT_EQ(locked, 'y');
  EXPECT_FALSE(files_->lock(folder_, error_));
  EXPECT_THAT(error_.text, HasSubstr("(" + std::to_string(child) + ")"));
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
  EXPECT_TRUE(files_->lock(folder_, error_)) << error_.text;
  ::close(pipe[0]);
  ::close(pipe[1]);
}

}  // namespace
}  // namespace kestrin::gateway
