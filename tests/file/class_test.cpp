#include "ostrel/file/class.h"

#include "support/modules.h"
#include "support/registry.h"

namespace {

TEST(Class, LoadsAModuleOfTheFolderThatTheRegistryNames) {
    RegistryFolder::OfProcess();
    const TempDir dir;
    plant_module("sample_module", "VEKA/libclass_sample.so");
    plant_module("needed_library", "VEKA/needed_library.so");
    const std::u16string folder = platform_path(dir.Path()) + u'\\';
    const TestKey key =
        created(HKEY_LOCAL_MACHINE, u"SOFTWARE\\Nimbara\\Larkspur\\service\\Information");
    const std::string bytes(reinterpret_cast<const char *>(folder.c_str()), 2 * folder.size() + 2);
    ASSERT_EQ(set_bytes(key, u"Local_Path", REG_SZ, bytes), 0);
    WCHAR name[] = u"class_sample.dll", none[] = u"none.dll";
    for (const auto load : {CUtilZorv::LoadLibExPlim, CUtilZorv::LoadLibExAsDataPlim}) {
        const HINSTANCE module = load(name);
        EXPECT_EQ(file_of(module), "libclass_sample.so");
        EXPECT_TRUE(FreeLibrary(module));
        EXPECT_EQ(load(none), nullptr);
    }
    EXPECT_EQ(RegDeleteValueW(key, u"Local_Path"), 0);
}

}  // namespace
