#include "inspection.h"

#include "lumplatform/files.h"
#include "lumplatform/imagefile.h"
#include "lumplatform/loader.h"
#include "lumplatform/text.h"

#include <algorithm>
#include <cstdio>

namespace lumrxinspect {

namespace {

using lumplatform::ImageFileFacts;
using lumplatform::ImageKind;

constexpr unsigned kElfSharedObject = 3;

std::string utf8(const std::u16string& text) { return lumplatform::toUtf8(text); }

std::string hexWord(unsigned value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%04X", value);
    return text;
}

// A machine word of the loader's probe by its common name.
std::string machineName(unsigned word) {
    switch (word) {
        case lumplatform::kMachineAmd64: return "x86-64";
        case lumplatform::kMachineI386: return "i386";
        case lumplatform::kMachineArm64: return "AArch64";
        case 0x0200: return "IA-64";
        case 0x01C4: return "ARM";
        default: return "machine " + hexWord(word);
    }
}

std::string machineOf(const ImageFileFacts& facts) {
    if (facts.kind == ImageKind::kNone) return {};
    if (facts.machine) return machineName(facts.machine);
    return "ELF machine " + std::to_string(facts.elfMachine);
}

std::string imageName(const ImageFileFacts& facts) {
    if (facts.kind == ImageKind::kPe) return "Windows image";
    if (facts.kind == ImageKind::kNone) return "none";
    if (facts.elfProgram) return "ELF program";
    switch (facts.elfType) {
        case 1: return "ELF object file";
        case kElfSharedObject: return "ELF shared object";
        case 4: return "ELF core file";
        default: return "ELF file of type " + std::to_string(facts.elfType);
    }
}

const ImageFileFacts& ownFacts() {
    static const ImageFileFacts facts = lumplatform::readImageFile(u"/proc/self/exe");
    return facts;
}

bool exports(const ImageFileFacts& facts, const char* symbol) {
    return std::find(facts.exports.begin(), facts.exports.end(), symbol) != facts.exports.end();
}

// ".krx" at the end, in any case, after at least one more character.
bool isModuleName(const std::u16string& name) {
    if (name.size() <= 4) return false;
    std::string tail = utf8(name.substr(name.size() - 4));
    for (char& c : tail) c = char(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
    return tail == ".krx";
}

// The module search as it runs while the module loads: the module's own folder (the
// loader's $ORIGIN and its current folder meanwhile) first, then the linker's search.
std::string findModule(const std::u16string& name, const std::u16string& moduleFolder,
                       const ImageFileFacts& facts) {
    std::u16string beside = moduleFolder + u"/" + name;
    unsigned attributes = lumplatform::fileAttributes(beside);
    if (name.find(u'/') == std::u16string::npos && attributes != lumplatform::kNoAttributes &&
        !(attributes & lumplatform::kAttributeDirectory))
        return utf8(lumplatform::fullPathName(beside));
    std::u16string found = lumplatform::searchFile(name);
    if (found.empty()) found = lumplatform::resolveLibrary(facts, name);
    return utf8(found);
}

void resolveNeeded(const std::u16string& path, const ImageFileFacts& facts, Inspection& out) {
    std::u16string full = lumplatform::fullPathName(path);
    std::u16string folder = full.substr(0, full.rfind(u'/'));
    for (const std::u16string& name : facts.needed) {
        if (isModuleName(name))
            out.modules.push_back({utf8(name), findModule(name, folder, facts)});
        else if (lumplatform::resolveLibrary(facts, name).empty())
            out.unresolved.push_back(utf8(name));
    }
}

std::string unreadableReason(const std::u16string& path) {
    unsigned attributes = lumplatform::fileAttributes(path);
    if (attributes == lumplatform::kNoAttributes) return "there is no such file";
    if (attributes & lumplatform::kAttributeDirectory) return "it is a folder";
    return "it can't be read";
}

// Why the image can't be handed to the system; empty if it can.
std::string imageReason(const std::u16string& path, const ImageFileFacts& facts, const Inspection& out) {
    if (!facts.readable) return unreadableReason(path);
    if (facts.kind == ImageKind::kNone) return "it is neither an ELF nor a Windows image";
    if (facts.kind == ImageKind::kPe)
        return "it is a Windows image for " + out.machine + "; Linux loads ELF shared objects";
    if (!facts.elfOwnLayout)
        return "it is an ELF image of another class or byte order than this system's";
    if (facts.elfMachine != ownFacts().elfMachine)
        return "it is an ELF image for " + out.machine + "; this machine is " + out.thisMachine;
    if (facts.elfType != kElfSharedObject || facts.elfProgram)
        return "it is an " + out.image + ", not a shared object";
    if (!facts.loadable) return "it is damaged: its headers or segments lie outside the file";
    return {};
}

// Why the module can't be loaded; empty if it can.
std::string moduleReason(const Inspection& out) {
    if (!out.exportsApiVersion && !out.exportsEntryPoint)
        return "it exports neither kvrxGetApiVersion nor kvrxEntryPoint";
    if (!out.exportsApiVersion) return "it doesn't export kvrxGetApiVersion";
    if (!out.exportsEntryPoint) return "it doesn't export kvrxEntryPoint";
    for (const NeededModule& m : out.modules)
        if (m.path.empty()) return "the module " + m.name + " it needs is missing";
    if (!out.unresolved.empty()) return "the library " + out.unresolved.front() + " it needs is not found";
    return {};
}

}  // namespace

Inspection inspectFile(const std::string& file) {
    Inspection out;
    out.file = file;
    std::u16string path = lumplatform::fromUtf8(file);
    ImageFileFacts facts = lumplatform::readImageFile(path);
    out.image = imageName(facts);
    out.machine = machineOf(facts);
    out.thisMachine = machineOf(ownFacts());
    out.sameMachine = facts.kind == ImageKind::kElf ? facts.elfMachine == ownFacts().elfMachine
                                                    : facts.machine && facts.machine == ownFacts().machine;
    out.exportsApiVersion = exports(facts, "kvrxGetApiVersion");
    out.exportsEntryPoint = exports(facts, "kvrxEntryPoint");
    out.reason = imageReason(path, facts, out);
    if (out.reason.empty()) {
        resolveNeeded(path, facts, out);
        out.reason = moduleReason(out);
    }
    out.loadable = out.reason.empty();
    return out;
}

}  // namespace lumrxinspect
