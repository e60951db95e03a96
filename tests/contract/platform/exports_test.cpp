// SPDX-License-Identifier: Apache-2.0
//
// What libtolm.so shows to the outside and needs from it, read from the file itself.
#include <elf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

class Library {
  public:
    Library()
    {
        std::ifstream in(TOLM_LIBRARY, std::ios::binary);
        file_.assign(std::istreambuf_iterator<char>(in), {});
        header_ = At<Elf64_Ehdr>(0);
    }

    std::vector<std::string> Exports() const
    {
        std::vector<std::string> names;
        const Elf64_Shdr symbols = Section(SHT_DYNSYM);
        for (std::size_t at = 0; at < symbols.sh_size; at += sizeof(Elf64_Sym)) {
            const auto symbol = At<Elf64_Sym>(symbols.sh_offset + at);
            if (symbol.st_shndx != SHN_UNDEF)
                names.push_back(Text(symbols, symbol.st_name));
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    std::vector<std::string> Needed() const
    {
        std::vector<std::string> names;
        const Elf64_Shdr dynamic = Section(SHT_DYNAMIC);
        for (std::size_t at = 0; at < dynamic.sh_size; at += sizeof(Elf64_Dyn)) {
            const auto entry = At<Elf64_Dyn>(dynamic.sh_offset + at);
            if (entry.d_tag == DT_NEEDED)
                names.push_back(Text(dynamic, entry.d_un.d_val));
        }
        return names;
    }

  private:
    template <class T> T At(std::size_t offset) const
    {
        T value{};
        EXPECT_LE(offset + sizeof value, file_.size());
        std::memcpy(&value, file_.data() + offset, sizeof value);
        return value;
    }
    Elf64_Shdr Section(Elf64_Word type) const
    {
        for (unsigned i = 0; i < header_.e_shnum; ++i) {
            const auto section = At<Elf64_Shdr>(header_.e_shoff + i * sizeof(Elf64_Shdr));
            if (section.sh_type == type)
                return section;
        }
        ADD_FAILURE() << "no section of type " << type;
        return {};
    }
    // A name from the table that belongs to `section`.
    std::string Text(const Elf64_Shdr& section, std::size_t at) const
    {
        const auto texts = At<Elf64_Shdr>(header_.e_shoff + section.sh_link * sizeof(Elf64_Shdr));
        return file_.data() + texts.sh_offset + at;
    }

    std::string file_;
    Elf64_Ehdr header_{};
};

TEST(TolmLibrary, ExportsItsFunctionsAndNothingElse)
{
    EXPECT_EQ((std::vector<std::string>{
                  "TolmCreateInstance", "TolmLog", "TolmLogLines", "TolmLogMark", "TolmLogQueue",
                  "TolmLogReopen", "TolmLogToFile", "TolmRegisterClassObject",
                  "TolmRegistryIsTruth", "TolmRegistryLoad", "TolmRegistryReportUnread",
                  "TolmRegistrySetOverride", "TolmRegistryWhere"}),
              Library().Exports());
}

TEST(TolmLibrary, NeedsTheCAndCppLibrariesAndIcuOnly)
{
    const char* const allowed[] = {"libc.so.", "libm.so.", "libstdc++.so.", "libgcc_s.so.",
                                   "libicuuc.so.", "ld-linux-",
                                   // with sanitizers
                                   "libasan.so.", "libubsan.so.", "libtsan.so."};
    bool hasIcu = false;
    for (const std::string& name : Library().Needed()) {
        EXPECT_TRUE(std::any_of(std::begin(allowed), std::end(allowed), [&](const char* start) {
            return name.starts_with(start);
        })) << name;
        hasIcu = hasIcu || name.starts_with("libicuuc.so.");
    }
    EXPECT_TRUE(hasIcu);
}

} // namespace
