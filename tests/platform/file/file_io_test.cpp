// What an open file does.

#include <optional>
#include <thread>

#include "support/file_calls.h"

namespace {

TEST(FileIo, ReadsAndWritesOnlyAsOpened) {
    const Planted dir("file=0123456789");
    char bytes[20] = {};
    DWORD done = 9;
    const FILETIME time = {0, 0x01D00000};
    const Opened reader(TEXT("file"), GENERIC_READ), writer(TEXT("file"), GENERIC_WRITE);
    EXPECT_TRUE(ReadFile(reader.handle, bytes, 4, &done, nullptr));
    EXPECT_TRUE(ReadFile(reader.handle, bytes + 4, 16, &done, nullptr));
    EXPECT_EQ(std::string(bytes, done + 4), "0123456789");
    EXPECT_EQ(error_of(WriteFile(reader.handle, "x", 1, &done, nullptr)), ERROR_ACCESS_DENIED);
    EXPECT_EQ(done, 0u);
    EXPECT_EQ(error_of(SetFileTime(reader.handle, nullptr, nullptr, &time)), ERROR_ACCESS_DENIED);
    EXPECT_EQ(error_of(ReadFile(writer.handle, bytes, 1, &done, nullptr)), ERROR_ACCESS_DENIED);
    EXPECT_EQ(error_of(WriteFile(writer.handle, nullptr, 1, &done, nullptr)), ERROR_NOACCESS);
}

TEST(FileIo, NeitherWaitsForAPeerNorDiesOfOneThatHasGone) {
    const TempDir dir;
    ASSERT_EQ(mkfifo("fifo", 0600), 0);
    char bytes[20];
    DWORD done = 9;
    EXPECT_FALSE(Opened(TEXT("fifo"), GENERIC_WRITE));  // nobody reads
    std::optional<Opened> reader(std::in_place, TEXT("fifo"), GENERIC_READ);
    EXPECT_TRUE(ReadFile(reader->handle, bytes, 20, &done, nullptr));
    EXPECT_EQ(done, 0u);
    const Opened writer(TEXT("fifo"), GENERIC_WRITE);
    std::thread late([&writer] {
        DWORD written;
        WriteFile(writer.handle, "late", 4, &written, nullptr);
    });
    EXPECT_TRUE(ReadFile(reader->handle, bytes, 20, &done, nullptr));  // waits, for what there is
    late.join();
    EXPECT_EQ(done, 4u);
    reader.reset();
    EXPECT_EQ(error_of(WriteFile(writer.handle, "x", 1, &done, nullptr)), 109u);  // BROKEN_PIPE
}

TEST(FileIo, ATimeOfCreationThatWasSetIsKept) {
    const Planted dir("file=");
    const FILETIME creation = {0x12345678, 0x01000000}, none = {0, 0};
    const FILETIME beyond = {0, 0x7FFFFFFF};
    FILETIME before[3], told[3];
    const Opened file(TEXT("file"), GENERIC_READ | GENERIC_WRITE);
    ASSERT_TRUE(GetFileTime(file.handle, &before[0], &before[1], &before[2]));
    EXPECT_TRUE(SetFileTime(file.handle, &creation, &none, nullptr));
    set(TEXT("file"), kHidden);
    set(TEXT("file"), kNormal);
    // Few file systems reach that far.
    const bool reached = SetFileTime(file.handle, nullptr, nullptr, &beyond);
    ASSERT_TRUE(GetFileTime(file.handle, &told[0], &told[1], &told[2]));
    EXPECT_EQ(CompareFileTime(&told[0], &creation), 0);
    EXPECT_EQ(CompareFileTime(&told[1], &before[1]), 0);
    EXPECT_EQ(CompareFileTime(&told[2], reached ? &beyond : &before[2]), 0);
}

}  // namespace
