// File locks between processes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "quillon.h"
#include "testsupport.h"
#include "vekfile.h"

namespace {

using qtest::TempDir;

bool Exists(std::string const& path) {
  std::error_code failed;
  return std::filesystem::exists(path, failed);
}

// Holds args[0] open with no sharing, reports args[1] + ".ready", and lets go
// once args[1] exists: by closing, or by dying when args[2] is "crash".
QTEST_HELPER(holdlock) {
  void* handle = uCreateFile(args[0].c_str(), vekGenericWrite, 0, nullptr, vekOpenAlways,
                             vekFileAttributeNormal, nullptr);
  if (handle == VEK_INVALID_HANDLE) return 2;
  qtest::WriteFile(args[1] + ".ready", "");
  if (!qtest::WaitUntil([&] { return Exists(args[1]); }, std::chrono::seconds(20))) return 3;
  if (args[2] == "crash") std::abort();
  return win32CloseFileHandle(handle) ? 0 : 4;
}

// Runs the holder in a child and waits until it has the file.
std::future<int> StartHolder(std::string const& file, std::string const& go, char const* how) {
  auto child = std::async(std::launch::async, [=] {
    return qtest::RunProgram({qtest::SelfPath(), "--helper", "holdlock", file, go, how});
  });
  EXPECT_TRUE(qtest::WaitUntil([&] { return Exists(go + ".ready"); }));
  return child;
}

TEST(FileLocks, LockMakesTheFileAndReleases) {
  TempDir dir;
  std::unique_ptr<pfuFileLock> lock(pfuFileLock::Construct(pfuDirPath((dir / "lock").c_str())));
  ASSERT_NE(lock, nullptr);
  EXPECT_EQ(lock->Release(), errOK);  // before any Lock: size 0
  qtest::WriteFile(dir / "lock", std::string(70000, 'x'));
  EXPECT_EQ(lock->Lock(), errOK);
  EXPECT_EQ(lock->Lock(), errOK);  // nothing stays held between calls
  EXPECT_EQ(lock->Release(), errOK);

  // A file that can never be opened ends Lock at once.
  std::unique_ptr<pfuFileLock> lost(pfuFileLock::Construct(pfuDirPath((dir / "no|lock").c_str())));
  EXPECT_EQ(lost->Lock(), errSysNotFound);
}

TEST(FileLocks, LockWaitsForAnotherProcess) {
  for (char const* how : {"close", "crash"}) {
    TempDir dir;
    std::string const file = dir / "lock", go = dir / "go";
    std::future<int> holder = StartHolder(file, go, how);
    std::unique_ptr<pfuFileLock> lock(pfuFileLock::Construct(pfuDirPath(file.c_str())));
    EXPECT_EQ(lock->Release(), errSysSharingViolation);  // no wait here

    std::thread letGo([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      qtest::WriteFile(go, "");
    });
    // Lock retries every second, so it comes back soon after the holder let go.
    EXPECT_EQ(QTEST_BOUNDED("the lock after the holder let go", lock->Lock()), errOK) << how;
    EXPECT_TRUE(Exists(go));  // it returned only after the holder let go
    letGo.join();
    int status = QTEST_BOUNDED("the holder's end", holder.get());
    EXPECT_TRUE(std::string(how) == "crash" || status == 0) << status;
    EXPECT_EQ(lock->Release(), errOK);
  }
}

TEST(FileLocks, LockFileBufferOpensAndCloses) {
  TempDir dir;
  lockFileBuf buffer;
  EXPECT_FALSE(buffer.Open((dir / "f").c_str(), std::ios::out | std::ios::in | std::ios::trunc, 0));
  EXPECT_EQ(buffer.sputn("abc", 3), 3);
  EXPECT_FALSE(buffer.Close());
  EXPECT_EQ(qtest::ReadFile(dir / "f"), "abc");
  EXPECT_TRUE(buffer.Open((dir / "missing|f").c_str(), std::ios::in, 0));
}

}  // namespace
