// ParseRelative over arbitrary text, with and without a base and wildcards, on a drive
// mapped to a temporary directory; every parsed path is also taken apart and edited.
#include "ctyuipathname.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

const CTyUiPathname& Base() {
    static CTyUiPathname base = [] {
        std::filesystem::path dir = std::filesystem::temp_directory_path() / "ctyuipathname-fuzz";
        std::filesystem::create_directories(dir);
        setenv("LUMRX_DRIVES", ("F=" + dir.string()).c_str(), 1);
        setenv("LUMRX_SHARES", ("srv/share=" + dir.string()).c_str(), 1);
        CTyUiPathname b;
        b.ParseRelative(u"F:\\", nullptr);
        return b;
    }();
    return base;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 1) return 0;
    const CTyUiPathname& base = Base();
    std::u16string text;
    for (size_t i = 1; i + 1 < size; i += 2) text += char16_t(data[i] | (data[i + 1] << 8));
    CTyUiPathname path;
    bool wildcards = data[0] & 1;
    if (path.ParseRelative(text.c_str(), (data[0] & 2) ? &base : nullptr, wildcards) != PathOk) {
        if (!path.IsEmpty()) std::abort();
        return 0;
    }
    KvString out;
    path.GetFullPath(out);
    path.GetDisplayName(out, data[0] >> 2);
    path.VerifyExtension(u"dwg;txt");
    CTyUiPathname parent;
    path.GetParent(parent);
    path.AppendComponent(u"x.txt");
    path.ReplaceExtensionAlways(u"bak");
    path.RemoveSpaces();
    path.TrimComponent();
    path.Trim();
    path.TrimSlash();
    return 0;
}
