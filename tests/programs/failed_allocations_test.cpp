// What runs out of memory: nothing is lost and nothing is half done.

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>

#include "ostrel/config/cm_IdMapping.h"
#include "ostrel/core/exception.h"
#include "ostrel/core/x_string.h"
#include "support/failing_memory.h"
#include "support/temp_dir.h"
#include "support/test.h"

namespace {

// Lets each allocation of `act` fail in turn, until one run needs no more.
template <class Act>
void fail_each_allocation(Act act) {
    int failing = 0;
    for (bool failed = true; failed; ++failing) {
        failing_memory::fail_after(failing);
        try {
            act();
        } catch (const std::bad_alloc &) {
        } catch (const OS::CSystemException &error) {
            EXPECT_EQ(error.GetErrorCode(), ENOMEM);
        }
        failed = failing_memory::has_failed();
        failing_memory::fail_after(-1);
    }
    EXPECT_GT(failing, 1);
}

void expect_ids(const CIDMapping &mapping, int first) {
    for (int id = first; id < first + 3; ++id) {
        ASSERT_NE(mapping.GetID(id), nullptr);
        EXPECT_EQ(mapping.GetID(mapping.GetID(id)), id);
    }
}

TEST(FailedAllocations, OfAMappingsCopiesLeaveSourceAndTarget) {
    const TempDir dir;
    const CIDMapping one(dir.Write("1", "1 first_name x\n2 second_name x\n3 c x").c_str());
    const CIDMapping two(dir.Write("2", "5 fifth_name x\n6 sixth_name x\n7 g x").c_str());
    std::unique_ptr<CIDMapping> copy;
    fail_each_allocation([&] {
        expect_ids(one, 1);
        copy = std::make_unique<CIDMapping>(one);
    });
    fail_each_allocation([&] {
        expect_ids(*copy, 1);
        expect_ids(two, 5);
        *copy = two;
    });
    expect_ids(*copy, 5);
}

TEST(FailedAllocations, OfAnAddedItemLeaveTheTable) {
    const TempDir dir;
    CIDMapping table(dir.Write("1", "1 first_name x\n2 second_name x\n3 c x").c_str());
    fail_each_allocation([&] {
        expect_ids(table, 1);
        EXPECT_EQ(table.GetID(u"another_name"), -1);
        table.AddItem(2, u"another_name", u"a longer category");
    });
    EXPECT_STREQ(fs::path(table.GetID(2)).c_str(), "another_name");
    EXPECT_EQ(table.GetID(u"another_name"), 2);
    EXPECT_EQ(table.GetID(u"second_name"), 2);
    fail_each_allocation([&] { table.AddItem(9, u"second_name", u""); });
    EXPECT_EQ(table.GetID(u"second_name"), 9);
}

// The code page is asked for once in a program.
const int kFailedToSet = setenv("LC_ALL", "ja_JP.SJIS", 1);

TEST(FailedAllocations, OfAMappingThatReadsInACodePageLeaveAllOrNothing) {
    ASSERT_EQ(kFailedToSet, 0);
    const TempDir dir;
    const std::u16string path = dir.Write("file", "7 \x83\x65 x");
    int loaded = 0;
    fail_each_allocation([&] {
        const CIDMapping mapping(path.c_str());
        if (mapping.GetID(7) != nullptr) {
            EXPECT_EQ(std::u16string_view(mapping.GetID(7)), u"\u30C6");
            ++loaded;
        }
    });
    EXPECT_GT(loaded, 0);
}

TEST(FailedAllocations, OfFormatComeWithTheAssignmentAlone) {
    OS::x_astring narrow;
    OS::x_wstring wide;
    const std::u16string text(600, u'\u30C6');
    for (const int allowed : {-1, 0}) {  // the first turn opens the converter and grows the strings
        failing_memory::fail_after(allowed);
        narrow.Format("%-1300S|%.1S", text.c_str(), text.c_str());
        wide.Format(TEXT("%700hs"), narrow.c_str());
        EXPECT_EQ(failing_memory::has_failed(), allowed < 0);
        failing_memory::fail_after(-1);
    }
    EXPECT_EQ(wide, text + std::u16string(100, u' ') + u"|\u30C6");
}

TEST(FailedAllocations, OfAReplacementLeaveAllOrNothing) {
    const std::string search = std::string(10, 'a') + 'b' + std::string(9, 'a');
    const std::string tail(40'000, 'a');  // resembles what is searched all along
    const OS::x_astring before(search + tail + search), sought(search);
    for (const OS::x_astring replacement :
         {"x", "longer than what it stands for, and on the heap"}) {
        SCOPED_TRACE(replacement);
        OS::x_astring text(before);
        const std::string after = replacement + tail + replacement;
        fail_each_allocation([&] {
            EXPECT_TRUE(text == before);
            text.FindAndReplaceAll(sought, replacement);
            EXPECT_TRUE(text == after);
            text.assign(before);
        });
    }
}

}  // namespace
