// Copies that run out of memory: nothing is lost, on either side.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>

#include "ostrel/config/cm_IdMapping.h"
#include "ostrel/core/exception.h"
#include "support/failing_memory.h"
#include "support/temp_dir.h"

namespace {

// Lets each allocation of `copy` fail in turn, until one run needs no more.
template <class Copy>
void fail_each_allocation(Copy copy) {
    for (int failing = 0;; ++failing) {
        failing_memory::fail_after(failing);
        try {
            copy();
            failing_memory::fail_after(-1);
            EXPECT_GT(failing, 3);
            return;
        } catch (const std::bad_alloc &) {
        }
    }
}

void expect_ids(const CIDMapping &mapping, int first) {
    EXPECT_EQ(mapping.GetID(TEXT("a name that takes memory")), -1);
    for (int id = first; id < first + 3; ++id) {
        ASSERT_NE(mapping.GetID(id), nullptr);
        EXPECT_EQ(mapping.GetID(mapping.GetID(id)), id);
    }
}

TEST(MappingMemory, FailedCopiesLeaveSourceAndTarget) {
    const TempDir dir;
    const auto one = std::make_unique<CIDMapping>(
        dir.Write("1", "1 first_name x\n2 second_name x\n3 c x").c_str());
    const auto two = std::make_unique<CIDMapping>(
        dir.Write("2", "5 fifth_name x\n6 sixth_name x\n7 g x").c_str());
    std::unique_ptr<CIDMapping> copy;
    fail_each_allocation([&] {
        expect_ids(*one, 1);
        copy = std::make_unique<CIDMapping>(*one);
    });
    expect_ids(*copy, 1);
    fail_each_allocation([&] {
        expect_ids(*copy, 1);
        expect_ids(*two, 5);
        *copy = *two;
    });
    expect_ids(*copy, 5);
}

// The code page is asked for once in a program.
const int kFailedToSet = setenv("LC_ALL", "ja_JP.SJIS", 1);

TEST(MappingMemory, ReadsInACodePageOrNothing) {
    ASSERT_EQ(kFailedToSet, 0);
    const TempDir dir;
    const std::u16string path = dir.Write("file", "7 \x83\x65 x");
    bool failed = true;
    int loaded = 0;
    for (int failing = 0; failed; ++failing) {
        std::unique_ptr<CIDMapping> mapping;
        failing_memory::fail_after(failing);
        try {
            mapping = std::make_unique<CIDMapping>(path.c_str());
        } catch (const std::bad_alloc &) {
        } catch (const OS::CSystemException &error) {
            EXPECT_EQ(error.GetErrorCode(), ENOMEM);
        }
        failed = failing_memory::has_failed();
        failing_memory::fail_after(-1);
        if (mapping != nullptr && mapping->GetID(7) != nullptr) {
            EXPECT_EQ(std::u16string(mapping->GetID(7)), u"\u30C6");
            ++loaded;
        }
    }
    EXPECT_GT(loaded, 0);
}

}  // namespace
