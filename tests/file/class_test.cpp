#include "ostrel/file/class.h"

#include "support/modules.h"
#include "support/registry.h"
#include "support/trace_capture.h"

namespace {

TEST(Class, LoadsAModuleOfTheFolderThatTheRegistryNames) {
    RegistryFolder::OfProcess();
    const TempDir dir;
    plant_module("sample_module", "VEKA/libclass_sample.so");
    plant_module("needed_library", "VEKA/needed_library.so");
    const std::u16string folder = platform_path(dir.Path()) + u'\\';
    const TestKey key =
        created(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Nimbara\\Larkspur\\service\\Information");
    const auto set_folder = [&key](const std::u16string &text) {
        return RegSetValueExW(key, u"Local_Path", 0, REG_SZ,
                              reinterpret_cast<const BYTE *>(text.c_str()),
                              static_cast<DWORD>(2 * text.size() + 2));
    };
    ASSERT_EQ(set_folder(folder), 0);
    WCHAR name[] = u"class_sample.dll";
    for (const auto load : {CUtilZorv::LoadLibExPlim, CUtilZorv::LoadLibExAsDataPlim}) {
        const HINSTANCE module = load(name);
        ASSERT_NE(module, nullptr);
        EXPECT_EQ(file_of(module), "libclass_sample.so");
        EXPECT_TRUE(FreeLibrary(module));
    }
    std::u16string whole = folder + u"VEKA\\class_sample";
    EXPECT_TRUE(FreeLibrary(CUtilZorv::LoadLibExPlim(whole.data())));

    WCHAR none[] = u"none.dll";
    const TraceCapture capture;
    EXPECT_EQ(CUtilZorv::LoadLibExPlim(none), nullptr);
    EXPECT_NE(capture.Lines().find("VEKA\\none.dll', flag=00000008. (err:126)"), std::string::npos);
    ASSERT_EQ(set_folder(std::u16string(10'000, u'x')), 0);
    EXPECT_EQ(CUtilZorv::LoadLibExPlim(none), nullptr);
    EXPECT_NE(capture.Lines().find("or dtype mismatch, err=126"), std::string::npos);
    EXPECT_EQ(RegDeleteValueW(key, u"Local_Path"), 0);
}

}  // namespace
