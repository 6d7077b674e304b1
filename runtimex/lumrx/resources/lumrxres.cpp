// The texts of the linker's numbered user messages. Each is a format: "%s" takes a
// module or file name, or the product name, in the order the linker passes them.

namespace {

struct Text {
    unsigned id;
    const char16_t* text;
};

const Text kTexts[] = {
    {1001, u"Unable to load module %s."},
    {1002, u"Module %s is already loaded."},
    {1004, u"Module %s has no entry point \"kvrxEntryPoint\"."},
    {1005, u"Module %s cannot be unloaded now: it is locked or handling a message."},
    {1006, u"%s is not a usable extension module."},
    {1007, u"Module %s loaded."},
    {1008, u"Module %s could not be loaded: a library it needs, or a symbol it uses, could not be "
           u"found."},
    {1010, u"Module %s could not be found."},
    // The loader refused the file and it names a 64-bit processor: a Windows image, or an
    // ELF file that isn't a shared object for this system.
    {1012, u"%s is a Windows image, or another 64-bit image, that %s on Linux cannot load; use a "
           u"build of the module made for %s on Linux."},
    {1015, u"Module %s was built for another version of %s."},
};

}  // namespace

extern "C" __attribute__((visibility("default"))) const char16_t* lumResourceString(unsigned id) {
    for (const Text& t : kTexts)
        if (t.id == id) return t.text;
    return nullptr;
}
