// A name parsed by the path class, then a sequence of edits and queries on it. After
// every step the object must be in one of its states (empty; a device with its text
// and no volume; a path with its text and its volume), its stored text no longer than
// the volume's path limit, a path without an empty component, and a display name no
// wider than asked.
//
// Input: a flags byte (bit 0 wildcards allowed, bit 1 relative to a base, bit 2 that
// base on the share instead of the drive), a length byte n, n 16-bit units of the name,
// then steps of two bytes: the operation and its argument. Names live on the drive F:
// and the share \\srv\share, both mapped to a temporary folder; no step writes, renames
// or removes a file: the only disk access is looking names up.
#include "ctyuipathname.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

struct Bases {
    CTyUiPathname drive, share;
};

const Bases& GetBases() {
    static Bases bases = [] {
        std::filesystem::path dir = std::filesystem::temp_directory_path() / "ctyuipathnameseq-fuzz";
        std::filesystem::create_directories(dir / "sub.d");
        setenv("LUMRX_DRIVES", ("F=" + dir.string()).c_str(), 1);
        setenv("LUMRX_SHARES", ("srv/share=" + dir.string()).c_str(), 1);
        Bases b;
        b.drive.ParseRelative(u"F:\\sub.d\\", nullptr);
        b.share.ParseRelative(u"\\\\srv\\share\\", nullptr);
        return b;
    }();
    return bases;
}

// Arguments of the text-taking steps.
const std::vector<std::u16string>& Fragments() {
    static const std::vector<std::u16string> fragments = {
        u"", u"..", u".", u"\\", u"\\\\", u"\\d", u"x.txt", u"dwg", u".bak", u"txt;DWG;bak", u";",
        u"*", u"?.t*", u"a|b", u"c:", u"F:\\sub.d", u"\\\\srv\\share\\x", u"com1", u"  sp ace . e ",
        u"\"quoted\"", u"sub.d\\..\\..", std::u16string(300, u'L'), std::u16string(120, u'm'),
        u"\t", u"/", u"F:\\SUB.D\\", u"lpt2.dat", u"prn:", u"\xD800", u"\x00E9\x00C9"};
    return fragments;
}

const char16_t* Fragment(uint8_t arg) {
    const auto& fragments = Fragments();
    return fragments[arg % fragments.size()].c_str();
}

size_t Length(const char16_t* text) { return std::char_traits<char16_t>::length(text); }

void Check(bool condition) {
    if (!condition) std::abort();
}

void CheckState(const CTyUiPathname& p) {
    const char16_t* text = p.GetPathString();
    if (p.IsEmpty()) return Check(!p.IsPath());
    Check(text != nullptr);
    if (p.GetPathType() == CTyUiPathname::kDevice) return Check(!p.GetVolumeDescriptor() && Length(text) <= 259);
    Check(p.IsPath() && p.GetVolumeDescriptor());
    Check(int(Length(text)) <= p.GetVolumeDescriptor()->GetMaxPath());
    Check(std::u16string(text).find(u"\\\\", 1) == std::u16string::npos || p.GetVolumeDescriptor()->GetFsType() == FS_TYPE_FAT);
    KvString full;
    Check(p.GetFullPath(full));
}

void Step(CTyUiPathname& p, uint8_t op, uint8_t arg) {
    KvString out;
    const char16_t* text = Fragment(arg);
    switch (op % 26) {
    case 0: p.Append(text); break;
    case 1: p.AppendSlash(); break;
    case 2: p.AppendComponent(arg & 0x80 ? nullptr : text); break;
    case 3: p.Trim(); break;
    case 4: p.TrimSlash(); break;
    case 5: p.TrimComponent(); break;
    case 6: p.ReplaceExtensionAlways(arg & 0x80 ? nullptr : text); break;
    case 7: p.AddExtensionAlways(arg & 0x80 ? nullptr : text); break;
    case 8: p.ReplaceExtensionIfNoMatch(text); break;
    case 9: p.AddExtensionIfNoMatch(text); break;
    case 10: p.RemoveExtensionAlways(); break;
    case 11: p.RemoveExtensionIfMatch(text); break;
    case 12: p.RemoveSpaces(); break;
    case 13: p.BaseToLower(); break;
    case 14: p.BaseToUpper(); break;
    case 15: {
        CTyUiPathname parent;
        p.GetParent(parent);
        CheckState(parent);
        if (arg & 1) p = parent;
        break;
    }
    case 16: {
        CTyUiPathname unique;
        p.GetUniqueName(unique, arg & 1);
        CheckState(unique);
        if (arg & 2) p = unique;
        break;
    }
    case 17: {
        int width = int(int8_t(arg));
        p.GetDisplayName(out, width);
        if (width != -1) Check(out.length() <= std::max(width, 6));
        break;
    }
    case 18: p.PathMatch(text); break;
    case 19: {
        CTyUiPathname other(p);
        Check(!p.IsPath() || p.PathMatch(&other));
        break;
    }
    case 20: p.VerifyExtension(arg & 0x80 ? nullptr : text); break;
    case 21:
        p.GetBasename(out);
        p.GetFilename(out);
        p.GetExtension(out);
        break;
    case 22: {
        char16_t buffer[260];
        p.GetFullPath(arg & 1 ? buffer : nullptr, arg);
        p.GetFullUNCPath(out);
        break;
    }
    case 23: {
        CTyUiPathname copy;
        copy = &p;
        p = copy;
        break;
    }
    case 24: p.Exists(); break;
    case 25: {
        CTyUiPathname next;
        if (next.ParseRelative(text, &p, arg & 0x80) != PathOk) Check(next.IsEmpty());
        CheckState(next);
        if (arg & 0x40) p = next;
        break;
    }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const Bases& bases = GetBases();
    uint8_t flags = data[0];
    size_t units = data[1];
    size_t at = 2;
    std::u16string name;
    for (; name.size() < units && at + 1 < size; at += 2) name += char16_t(data[at] | data[at + 1] << 8);
    const CTyUiPathname* base = !(flags & 2) ? nullptr : (flags & 4) ? &bases.share : &bases.drive;
    CTyUiPathname path;
    if (path.ParseRelative(name.c_str(), base, flags & 1) != PathOk) Check(path.IsEmpty());
    CheckState(path);
    for (; at + 1 < size; at += 2) {
        Step(path, data[at], data[at + 1]);
        CheckState(path);
    }
    return 0;
}
