// lumrx-demo: starts the runtime, registers a small class family the way a module
// would, prints the class tree and the system registry, and shuts the runtime down.
#include "kvrxcollection.h"
#include "kvrxruntime.h"
#include "lumosbase.h"
#include "lumplatform/text.h"

#include <cstdio>
#include <memory>
#include <string>

namespace {

std::string text(const char16_t* s) { return lumplatform::toUtf8(s ? s : u""); }

void printTree(const KvRxClass* c, int depth) {
    std::printf("%*s%s\n", depth * 2, "", text(c->name()).c_str());
    KvRxDictionary* classes = KvRxDictionary::cast(kvrxSysRegistry()->at(u"ClassDictionary"));
    std::unique_ptr<KvRxDictionaryIterator> it(classes->newIterator(kDictSorted));
    for (; !it->done(); it->next()) {
        const KvRxClass* child = KvRxClass::cast(it->object());
        if (child && child->myParent() == c) printTree(child, depth + 1);
    }
}

}  // namespace

int main() {
    try {
        InitializeKvRxSystem();
        // Children may register before their parents: linking is one batch.
        newKvRxClass(u"DemoCircle", u"DemoShape");
        newKvRxClass(u"DemoShape", u"OvRxObject");
        newKvRxClass(u"DemoSquare", u"DemoShape");
        kvrxBuildClassHierarchy();

        std::printf("Class tree:\n");
        printTree(KvRxObject::desc(), 1);

        std::printf("System registry:\n");
        std::unique_ptr<KvRxDictionaryIterator> it(kvrxSysRegistry()->newIterator(kDictById));
        for (; !it->done(); it->next()) std::printf("  %u %s\n", it->id(), text(it->key()).c_str());
        it.reset();

        KvRxClass* circle = kvrxFindKvRxClass(u"democircle");
        std::printf("\"democircle\" finds %s, derived from DemoShape: %s\n", text(circle->name()).c_str(),
                    circle->isDerivedFrom(kvrxFindKvRxClass(u"DemoShape")) ? "yes" : "no");

        deleteKvRxClass(circle);
        deleteKvRxClass(kvrxFindKvRxClass(u"DemoSquare"));
        deleteKvRxClass(kvrxFindKvRxClass(u"DemoShape"));
        UninitializeKvRxSystem();
        std::printf("Runtime shut down cleanly.\n");
        return 0;
    } catch (LumException* e) {
        std::fprintf(stderr, "lumrx-demo: %s\n", text(e->description()).c_str());
        delete e;
        return 1;
    }
}
