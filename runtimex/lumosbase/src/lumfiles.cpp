#include "lumosbase.h"

#include "lumplatform/files.h"

namespace {

bool isSeparator(char16_t c) { return c == u'/' || c == u'\\'; }

// Copies `text` with its terminator into an out buffer of LUM_MAX_PATH units.
bool putPath(const std::u16string& text, char16_t* out) {
    if (text.size() + 1 > LUM_MAX_PATH) return false;
    std::memcpy(out, text.c_str(), (text.size() + 1) * sizeof(char16_t));
    return true;
}

}  // namespace

bool LumPathMaker::getFullFileName(const char16_t* name, char16_t* out) {
    if (!out) return false;
    out[0] = 0;
    if (!name || !*name) return false;
    std::u16string full = lumplatform::fullPathName(name);
    return !full.empty() && putPath(full, out);
}

bool LumPathMaker::getFileName(const char16_t* path, char16_t* out, char16_t* /*ext*/) {
    if (!out) return false;
    out[0] = 0;
    if (!path) return false;
    const char16_t* base = path;
    const char16_t* dot = nullptr;
    for (const char16_t* p = path; *p; ++p) {
        if (isSeparator(*p)) {
            base = p + 1;
            dot = nullptr;
        } else if (*p == u'.') {
            dot = p;
        }
    }
    // The extension is getExtFileName's part.
    return putPath(dot ? std::u16string(base, dot) : std::u16string(base), out);
}

bool LumPathMaker::getExtFileName(char16_t* out, const char16_t* path) {
    if (!out) return false;
    out[0] = 0;
    if (!path) return false;
    const char16_t* dot = nullptr;
    for (const char16_t* p = path; *p; ++p) {
        if (isSeparator(*p)) dot = nullptr;
        else if (*p == u'.') dot = p;
    }
    return putPath(dot ? dot : u"", out);
}

bool LumFileSystem::isFileExisting(const char16_t* name) {
    return getFileAttributes(name) != INVALID_FILE_ATTRIBUTES;
}

unsigned LumFileSystem::getFileAttributes(const char16_t* path) {
    if (!path || !*path) return INVALID_FILE_ATTRIBUTES;
    return lumplatform::fileAttributes(path);
}
