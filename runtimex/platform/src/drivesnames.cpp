// The drive table and the translation of names between Windows syntax and POSIX paths.
#include "drivesinternal.h"
#include "lumplatform/files.h"
#include "lumplatform/text.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <vector>

namespace lumplatform {
namespace {

constexpr size_t kLongestName = 32767;
constexpr char16_t kSeparator = u'\\';
constexpr int kDriveCount = 26;

struct Share {
    std::u16string server;
    std::u16string share;
    std::u16string directory;
};

struct DriveTable {
    DriveStatus drivesStatus = DriveStatus::ok;
    std::u16string drives[kDriveCount];  // empty: the letter is unmapped
    DriveStatus sharesStatus = DriveStatus::ok;
    std::vector<Share> shares;
};

bool isControl(char16_t c) { return c < 0x20; }

bool hasControl(std::u16string_view text) {
    for (char16_t c : text)
        if (isControl(c)) return true;
    return false;
}

bool isAsciiLetter(char16_t c) { return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z'); }

char16_t upperLetter(char16_t c) { return c >= u'a' ? char16_t(c - 32) : c; }

bool equalNoCase(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (foldCaseUnit(a[i]) != foldCaseUnit(b[i])) return false;
    return true;
}

// Appends the components of `text`, split at `separator`, to `out`, each behind
// `outSeparator`: empty ones and "." are dropped, and ".." takes the last one away but
// never cuts into the first `floor` units.
void appendFolded(std::u16string& out, size_t floor, std::u16string_view text, char16_t separator,
                  char16_t outSeparator) {
    size_t i = 0;
    while (i <= text.size()) {
        size_t j = text.find(separator, i);
        if (j == std::u16string_view::npos) j = text.size();
        std::u16string_view part = text.substr(i, j - i);
        if (part == u"..") {
            if (out.size() > floor) out.erase(out.rfind(outSeparator));
        } else if (!part.empty() && part != u".") {
            out += outSeparator;
            out += part;
        }
        i = j + 1;
    }
}

// An absolute POSIX path with its components folded.
std::u16string foldPosix(std::u16string_view path) {
    std::u16string out;
    appendFolded(out, 0, path, u'/', u'/');
    return out.empty() ? u"/" : out;
}

// A directory of the environment: absolute, UTF-8, no control character; folded.
bool readDirectory(std::u16string_view text, std::u16string& directory) {
    if (text.empty() || text[0] != u'/' || hasControl(text)) return false;
    directory = foldPosix(text);
    return true;
}

// Splits "key=value;key=value" into pairs; false for an entry without "=".
bool splitEntries(std::u16string_view text,
                  std::vector<std::pair<std::u16string_view, std::u16string_view>>& entries) {
    size_t i = 0;
    while (i <= text.size()) {
        size_t j = text.find(u';', i);
        if (j == std::u16string_view::npos) j = text.size();
        std::u16string_view entry = text.substr(i, j - i);
        i = j + 1;
        if (entry.empty()) continue;
        size_t eq = entry.find(u'=');
        if (eq == std::u16string_view::npos) return false;
        entries.emplace_back(entry.substr(0, eq), entry.substr(eq + 1));
    }
    return true;
}

bool readDrives(std::u16string_view text, DriveTable& table) {
    std::vector<std::pair<std::u16string_view, std::u16string_view>> entries;
    if (!splitEntries(text, entries)) return false;
    bool named[kDriveCount] = {};
    for (const auto& [key, value] : entries) {
        if (key.size() != 1 || !isAsciiLetter(key[0])) return false;
        int index = upperLetter(key[0]) - u'A';
        if (named[index] || !readDirectory(value, table.drives[index])) return false;
        named[index] = true;
    }
    return true;
}

// A server or share name: not empty, and nothing that would end or split it.
bool isShareWord(std::u16string_view word) {
    return !word.empty() && !hasControl(word) && word.find_first_of(u"/\\:") == std::u16string_view::npos;
}

const Share* findShare(const std::vector<Share>& shares, std::u16string_view server,
                       std::u16string_view share) {
    for (const Share& s : shares)
        if (equalNoCase(s.server, server) && equalNoCase(s.share, share)) return &s;
    return nullptr;
}

bool readShares(std::u16string_view text, std::vector<Share>& shares) {
    std::vector<std::pair<std::u16string_view, std::u16string_view>> entries;
    if (!splitEntries(text, entries)) return false;
    for (const auto& [key, value] : entries) {
        size_t slash = key.find(u'/');
        if (slash == std::u16string_view::npos) return false;
        std::u16string_view server = key.substr(0, slash), share = key.substr(slash + 1);
        if (!isShareWord(server) || !isShareWord(share) || findShare(shares, server, share)) return false;
        Share s{std::u16string(server), std::u16string(share), {}};
        if (!readDirectory(value, s.directory)) return false;
        shares.push_back(std::move(s));
    }
    return true;
}

// The 16-bit form of an environment text; false if its bytes aren't UTF-8.
bool readUtf8(const std::string& bytes, std::u16string& text) {
    text = fromUtf8(bytes);
    return toUtf8(text) == bytes;
}

DriveTable buildTable(const std::string& drives, const std::string& shares) {
    DriveTable table;
    table.drives[u'Z' - u'A'] = u"/";
    std::u16string text;
    if (!readUtf8(drives, text) || !readDrives(text, table)) {
        table = DriveTable();
        table.drivesStatus = DriveStatus::malformedDrives;
    }
    if (!readUtf8(shares, text) || !readShares(text, table.shares)) {
        table.shares.clear();
        table.sharesStatus = DriveStatus::malformedShares;
    }
    return table;
}

// The table of the environment as it is now; parsed again only when a variable changed.
const DriveTable& driveTable() {
    struct Cache {
        bool built = false;
        std::string drives, shares;
        DriveTable table;
    };
    thread_local Cache cache;
    const char* drives = std::getenv("LUMRX_DRIVES");
    const char* shares = std::getenv("LUMRX_SHARES");
    if (!drives) drives = "";
    if (!shares) shares = "";
    if (!cache.built || cache.drives != drives || cache.shares != shares) {
        cache.drives = drives;
        cache.shares = shares;
        cache.table = buildTable(cache.drives, cache.shares);
        cache.built = true;
    }
    return cache.table;
}

// A Windows name taken apart. `rest` is what follows the volume prefix, with
// backslashes only; for the relative forms it is the whole text.
struct WindowsName {
    enum Form { drive, driveRelative, unc, rootRelative, relative } form = relative;
    char16_t letter = 0;  // upper case
    std::u16string server, share;
    std::u16string rest;
};

DriveStatus splitUnc(WindowsName& name) {
    const std::u16string& text = name.rest;
    size_t serverEnd = text.find(kSeparator, 2);
    if (serverEnd == std::u16string::npos) return DriveStatus::badName;
    size_t shareEnd = text.find(kSeparator, serverEnd + 1);
    if (shareEnd == std::u16string::npos) shareEnd = text.size();
    name.server = text.substr(2, serverEnd - 2);
    name.share = text.substr(serverEnd + 1, shareEnd - serverEnd - 1);
    if (name.server.empty() || name.share.empty()) return DriveStatus::badName;
    name.rest.erase(0, shareEnd);
    name.form = WindowsName::unc;
    return DriveStatus::ok;
}

DriveStatus splitWindowsName(const std::u16string& text, WindowsName& name) {
    if (text.size() > kLongestName) return DriveStatus::nameTooLong;
    if (text.empty() || hasControl(text)) return DriveStatus::badName;
    name.rest = text;
    for (char16_t& c : name.rest)
        if (c == u'/') c = kSeparator;
    size_t colon = name.rest.find(u':');
    if (colon != std::u16string::npos) {
        if (colon != 1 || !isAsciiLetter(name.rest[0]) || name.rest.find(u':', 2) != std::u16string::npos)
            return DriveStatus::badName;
        name.letter = upperLetter(name.rest[0]);
        name.rest.erase(0, 2);
        bool rooted = !name.rest.empty() && name.rest[0] == kSeparator;
        name.form = rooted ? WindowsName::drive : WindowsName::driveRelative;
        return DriveStatus::ok;
    }
    if (name.rest.compare(0, 2, u"\\\\") == 0) return splitUnc(name);
    name.form = name.rest[0] == kSeparator ? WindowsName::rootRelative : WindowsName::relative;
    return DriveStatus::ok;
}

// The directory that the volume of an absolute name stands for, in the drive table.
DriveStatus directoryOfVolume(const WindowsName& name, const std::u16string*& directory) {
    const DriveTable& table = driveTable();
    if (name.form == WindowsName::unc) {
        if (table.sharesStatus != DriveStatus::ok) return table.sharesStatus;
        const Share* share = findShare(table.shares, name.server, name.share);
        if (!share) return DriveStatus::notMapped;
        directory = &share->directory;
        return DriveStatus::ok;
    }
    if (table.drivesStatus != DriveStatus::ok) return table.drivesStatus;
    directory = &table.drives[name.letter - u'A'];
    return directory->empty() ? DriveStatus::notMapped : DriveStatus::ok;
}

// `directory` with the folded components of `rest` below it.
void appendBelow(const std::u16string& directory, std::u16string_view rest, std::u16string& path) {
    path = directory == u"/" ? u"" : directory;
    appendFolded(path, path.size(), rest, kSeparator, u'/');
    if (path.empty()) path = u"/";
}

// The part of `path` below `directory`, which holds it.
std::u16string_view tailBelow(const std::u16string& directory, const std::u16string& path) {
    size_t skip = directory == u"/" ? 1 : directory.size() + 1;
    return skip >= path.size() ? std::u16string_view() : std::u16string_view(path).substr(skip);
}

// `prefix` (a drive or a share), the separator, then `tail` in Windows syntax.
DriveStatus windowsBelow(std::u16string prefix, std::u16string_view tail, std::u16string& out) {
    if (hasControl(tail) || tail.find_first_of(u"\\:") != std::u16string_view::npos)
        return DriveStatus::unrepresentable;
    prefix += kSeparator;
    for (char16_t c : tail) prefix += c == u'/' ? kSeparator : c;
    if (prefix.size() > kLongestName) return DriveStatus::nameTooLong;
    out = std::move(prefix);
    return DriveStatus::ok;
}

std::u16string shareName(const Share& share) { return u"\\\\" + share.server + kSeparator + share.share; }

// The share whose directory is the longest one holding `path`, or null.
const Share* shareHolding(const std::vector<Share>& shares, const std::u16string& path) {
    const Share* best = nullptr;
    for (const Share& s : shares)
        if (drivesinternal::holds(s.directory, path) && (!best || s.directory.size() > best->directory.size()))
            best = &s;
    return best;
}

DriveStatus checkPosixPath(const std::u16string& path) {
    if (path.size() > kLongestName) return DriveStatus::nameTooLong;
    if (path.empty() || path[0] != u'/' || path.find(u'\0') != std::u16string::npos) return DriveStatus::badName;
    return DriveStatus::ok;
}

// The volume prefix of an absolute name: "C:" or "\\server\share".
std::u16string volumePrefix(const WindowsName& name) {
    if (name.form == WindowsName::unc) return u"\\\\" + name.server + kSeparator + name.share;
    return std::u16string{name.letter, u':'};
}

// The absolute name that a relative form continues: the current directory or its
// volume. `current` is the current directory's full name, or null to ask the process.
DriveStatus baseOf(const WindowsName& name, const std::u16string* current, std::u16string& base) {
    std::u16string asked;
    DriveStatus status = DriveStatus::ok;
    if (!current) {
        status = currentDirectoryName(asked);
        current = &asked;
    }
    WindowsName here;
    if (status == DriveStatus::ok) splitWindowsName(*current, here);  // cannot fail: a full name
    if (name.form == WindowsName::driveRelative) {
        // On another drive than the current one: its root, as no directory is kept per drive.
        bool sameDrive = status == DriveStatus::ok && here.form == WindowsName::drive && here.letter == name.letter;
        base = sameDrive ? *current : std::u16string{name.letter, u':'};
        return DriveStatus::ok;
    }
    if (status != DriveStatus::ok) return status;
    base = name.form == WindowsName::rootRelative ? volumePrefix(here) : *current;
    return DriveStatus::ok;
}

// fullWindowsName with `current` standing for the current directory, as in baseOf.
DriveStatus fullNameFrom(const WindowsName& name, const std::u16string* current, std::u16string& fullName) {
    std::u16string out;
    size_t root;
    if (name.form == WindowsName::drive || name.form == WindowsName::unc) {
        out = volumePrefix(name);  // its own volume is all of its base
        root = out.size();
    } else {
        std::u16string base;
        DriveStatus status = baseOf(name, current, base);
        if (status != DriveStatus::ok) return status;
        WindowsName absolute;
        splitWindowsName(base, absolute);  // cannot fail: `base` is a volume prefix or a full name
        out = volumePrefix(absolute);
        root = out.size();
        appendFolded(out, root, absolute.rest, kSeparator, kSeparator);
    }
    appendFolded(out, root, name.rest, kSeparator, kSeparator);
    bool trailing = !name.rest.empty() && name.rest.back() == kSeparator;
    if (out.size() == root || trailing) out += kSeparator;
    if (out.size() > kLongestName) return DriveStatus::nameTooLong;
    fullName = std::move(out);
    return DriveStatus::ok;
}

// Whether a name, taken against a directory, reaches a file below it (or below its
// volume's root) through components of its own and never climbs: then the file's own
// look-up can't succeed unless the directory can be entered.
bool reachesBelow(const WindowsName& name) {
    if (name.form != WindowsName::relative && name.form != WindowsName::rootRelative) return false;
    bool below = false;
    for (size_t i = 0; i <= name.rest.size();) {
        size_t j = std::min(name.rest.find(kSeparator, i), name.rest.size());
        std::u16string_view part = std::u16string_view(name.rest).substr(i, j - i);
        if (part == u"..") return false;
        below = below || (!part.empty() && part != u".");
        i = j + 1;
    }
    return below;
}

// The POSIX path of a split name against the process's current directory. A drive or
// share name needs no base: it is folded below its volume's directory straight away.
DriveStatus posixFrom(const WindowsName& name, std::u16string& posixPath) {
    if (name.form == WindowsName::drive || name.form == WindowsName::unc) {
        const std::u16string* directory = nullptr;
        DriveStatus status = directoryOfVolume(name, directory);
        if (status == DriveStatus::ok) appendBelow(*directory, name.rest, posixPath);
        return status;
    }
    std::u16string full;
    DriveStatus status = fullNameFrom(name, nullptr, full);
    return status == DriveStatus::ok ? posixPathOf(full, posixPath) : status;
}

// The current directory that a call "in `directory`" works in, split: `directory`
// itself if it names its drive or share, else its full name.
DriveStatus splitDirectory(const std::u16string& directory, WindowsName& here) {
    DriveStatus status = splitWindowsName(directory, here);
    if (status != DriveStatus::ok || here.form == WindowsName::drive || here.form == WindowsName::unc)
        return status;
    std::u16string full;
    status = fullWindowsName(directory, full);
    return status == DriveStatus::ok ? splitWindowsName(full, here) : status;
}

// The POSIX path of a name taken in the split directory `here`: the volume's directory,
// then `here`'s own components for a relative name, then the name's, folded together
// and never above the volume's directory. A drive-relative name goes by its full name.
DriveStatus posixIn(const WindowsName& here, const WindowsName& name, std::u16string& posixPath) {
    if (name.form == WindowsName::driveRelative) {
        std::u16string current = volumePrefix(here) + here.rest, full;
        DriveStatus status = fullNameFrom(name, &current, full);
        return status == DriveStatus::ok ? posixPathOf(full, posixPath) : status;
    }
    const WindowsName& volume = name.form == WindowsName::drive || name.form == WindowsName::unc ? name : here;
    const std::u16string* directory = nullptr;
    DriveStatus status = directoryOfVolume(volume, directory);
    if (status != DriveStatus::ok) return status;
    std::u16string path;
    path.reserve(directory->size() + here.rest.size() + name.rest.size() + 2);
    if (*directory != u"/") path = *directory;
    size_t floor = path.size();
    if (name.form == WindowsName::relative) appendFolded(path, floor, here.rest, kSeparator, u'/');
    appendFolded(path, floor, name.rest, kSeparator, u'/');
    posixPath = path.empty() ? u"/" : std::move(path);
    return DriveStatus::ok;
}

// Whether the split directory exists and may be searched, as a change to it would
// need: the look-up of "." inside it asks both.
bool canEnter(const WindowsName& here) {
    WindowsName dot;
    dot.form = WindowsName::relative;
    dot.rest = u".";
    std::u16string path;
    if (posixIn(here, dot, path) != DriveStatus::ok) return false;
    unsigned kind = fileKindAttributes(path + u"/.");
    return kind != kNoAttributes && (kind & kAttributeDirectory);
}

}  // namespace

namespace drivesinternal {

bool holds(const std::u16string& directory, const std::u16string& path) {
    if (path.compare(0, directory.size(), directory) != 0) return false;
    return path.size() == directory.size() || directory == u"/" || path[directory.size()] == u'/';
}

DriveStatus volumeDirectory(const std::u16string& volumeRoot, std::u16string& directory) {
    WindowsName name;
    DriveStatus status = splitWindowsName(volumeRoot, name);
    if (status != DriveStatus::ok) return status;
    bool isVolume = name.form == WindowsName::drive || name.form == WindowsName::driveRelative ||
                    name.form == WindowsName::unc;
    if (!isVolume || (!name.rest.empty() && name.rest != u"\\")) return DriveStatus::badName;
    const std::u16string* mapped = nullptr;
    status = directoryOfVolume(name, mapped);
    if (status == DriveStatus::ok) directory = *mapped;
    return status;
}

}  // namespace drivesinternal

DriveStatus posixPathOf(const std::u16string& windowsName, std::u16string& posixPath) {
    WindowsName name;
    DriveStatus status = splitWindowsName(windowsName, name);
    if (status != DriveStatus::ok) return status;
    // A bare "C:" names the drive's root here; other drive-relative forms need a base.
    bool absolute = name.form == WindowsName::drive || name.form == WindowsName::unc ||
                    (name.form == WindowsName::driveRelative && name.rest.empty());
    if (!absolute) return DriveStatus::badName;
    const std::u16string* directory = nullptr;
    status = directoryOfVolume(name, directory);
    if (status != DriveStatus::ok) return status;
    appendBelow(*directory, name.rest, posixPath);
    return DriveStatus::ok;
}

DriveStatus windowsNameOf(const std::u16string& posixPath, std::u16string& windowsName) {
    DriveStatus status = checkPosixPath(posixPath);
    if (status != DriveStatus::ok) return status;
    const DriveTable& table = driveTable();
    if (table.drivesStatus != DriveStatus::ok) return table.drivesStatus;
    std::u16string path = foldPosix(posixPath);
    int best = -1;
    for (int i = 0; i < kDriveCount; ++i) {
        const std::u16string& d = table.drives[i];
        if (!d.empty() && drivesinternal::holds(d, path) && (best < 0 || d.size() > table.drives[best].size()))
            best = i;
    }
    if (best >= 0) {
        std::u16string prefix{char16_t(u'A' + best), u':'};
        return windowsBelow(prefix, tailBelow(table.drives[best], path), windowsName);
    }
    if (table.sharesStatus != DriveStatus::ok) return table.sharesStatus;
    const Share* share = shareHolding(table.shares, path);
    if (!share) return DriveStatus::notMapped;
    return windowsBelow(shareName(*share), tailBelow(share->directory, path), windowsName);
}

DriveStatus fullWindowsName(const std::u16string& text, std::u16string& fullName) {
    WindowsName name;
    DriveStatus status = splitWindowsName(text, name);
    return status == DriveStatus::ok ? fullNameFrom(name, nullptr, fullName) : status;
}

DriveStatus posixPathIn(const std::u16string& directory, const std::u16string& text, std::u16string& posixPath) {
    WindowsName name, here;
    DriveStatus status = splitWindowsName(text, name);
    if (status != DriveStatus::ok) return status;
    if (directory.empty()) return posixFrom(name, posixPath);
    status = splitDirectory(directory, here);
    if (status != DriveStatus::ok) return status;
    if (!canEnter(here)) return DriveStatus::notAvailable;
    return posixIn(here, name, posixPath);
}

unsigned attributesIn(const std::u16string& directory, const std::u16string& text) {
    WindowsName name, here;
    std::u16string path;
    if (splitWindowsName(text, name) != DriveStatus::ok) return kNoAttributes;
    if (directory.empty())
        return posixFrom(name, path) == DriveStatus::ok ? fileKindAttributes(path) : kNoAttributes;
    if (splitDirectory(directory, here) != DriveStatus::ok || posixIn(here, name, path) != DriveStatus::ok)
        return kNoAttributes;
    // A file that isn't there needs no look at the directory.
    unsigned attributes = fileKindAttributes(path);
    return attributes == kNoAttributes || reachesBelow(name) || canEnter(here) ? attributes : kNoAttributes;
}

DriveStatus currentDirectoryName(std::u16string& name) {
    std::u16string path = currentDirectory();
    if (path.empty()) return DriveStatus::notAvailable;
    return windowsNameOf(path, name);
}

DriveStatus changeCurrentDirectory(const std::u16string& name) {
    std::u16string full, path;
    DriveStatus status = fullWindowsName(name, full);
    if (status == DriveStatus::ok) status = posixPathOf(full, path);
    if (status != DriveStatus::ok) return status;
    return setCurrentDirectory(path) ? DriveStatus::ok : DriveStatus::notAvailable;
}

DriveStatus networkNameOf(const std::u16string& windowsName, std::u16string& networkName) {
    std::u16string path;
    DriveStatus status = posixPathOf(windowsName, path);
    if (status != DriveStatus::ok) return status;
    const DriveTable& table = driveTable();
    if (table.sharesStatus != DriveStatus::ok) return table.sharesStatus;
    const Share* share = shareHolding(table.shares, path);
    if (!share) return DriveStatus::notConnected;
    return windowsBelow(shareName(*share), tailBelow(share->directory, path), networkName);
}

}  // namespace lumplatform
