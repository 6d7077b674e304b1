// The sibling libraries as the runtime relies on them: the copy-on-write vector, files
// and paths, the crash recorder, the pointer list, the locale value and the product names.

#include "testsupport.h"

#include "lumosbase.h"
#include "lumpal.h"
#include "lumuinfo.h"

#include <cctype>
#include <climits>
#include <functional>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using lumtest::u16;
using lumtest::utf8;

int thrownStatus(const std::function<void()>& f) {
    try {
        f();
    } catch (LumErrorStatus* e) {
        int s = e->status();
        delete e;
        return s;
    }
    return -1;
}

std::vector<int> items(const LumVector<int>& v) { return std::vector<int>(v.asArrayPtr(), v.asArrayPtr() + v.length()); }

TEST(LumVectorTest, SharedBodiesAreClonedBeforeAWrite) {
    int emptyRefs = gpEmptyVectorData.refs.load();
    {
        LumVector<int> e1, e2;
        EXPECT_EQ(e1.length(), 0);
        EXPECT_EQ(static_cast<const LumVector<int>&>(e1).asArrayPtr(), static_cast<const LumVector<int>&>(e2).asArrayPtr());
        e1.clear();
        e1.resize(0);
        EXPECT_EQ(gpEmptyVectorData.length, 0);

        LumVector<int> a;
        for (int i = 1; i <= 3; ++i) a.append(i);
        EXPECT_EQ(a.physicalLength(), 8);  // grow step 8
        LumVector<int> b(a), c, d, e;
        c = a;
        d = a;
        e = a;
        const LumVector<int>& ca = a;
        EXPECT_TRUE(a.isShared());
        EXPECT_EQ(static_cast<const LumVector<int>&>(b).asArrayPtr(), ca.asArrayPtr());

        b.setAt(0, 9);
        c.append(4);
        d.removeAt(0);
        e.asArrayPtr()[2] = 7;  // a writable pointer unshares first
        EXPECT_EQ(items(a), (std::vector<int>{1, 2, 3}));
        EXPECT_EQ(items(b), (std::vector<int>{9, 2, 3}));
        EXPECT_EQ(items(c), (std::vector<int>{1, 2, 3, 4}));
        EXPECT_EQ(items(d), (std::vector<int>{2, 3}));
        EXPECT_EQ(items(e), (std::vector<int>{1, 2, 7}));
        EXPECT_FALSE(a.isShared());
        EXPECT_FALSE(b.isShared());

        LumVector<int> f(a);
        f.clear();
        EXPECT_EQ(items(a), (std::vector<int>{1, 2, 3}));
        f = a;
        f = f;
        EXPECT_EQ(f.find(3), 2);
        EXPECT_EQ(f.find(5), -1);
        EXPECT_EQ(f.last(), 3);

        for (int i = 4; i <= 8; ++i) a.append(i);
        a.append(a.at(0));  // the source lives in the body that moves
        a.insertAt(0, a.at(8));
        EXPECT_EQ(items(a), (std::vector<int>{1, 1, 2, 3, 4, 5, 6, 7, 8, 1}));
        EXPECT_EQ(a.physicalLength(), 16);
        EXPECT_EQ(items(f), (std::vector<int>{1, 2, 3}));
    }
    EXPECT_EQ(gpEmptyVectorData.refs.load(), emptyRefs);
}

TEST(LumVectorTest, GrowLengthIsTheHandlesOwn) {
    LumVector<int> tuned, plain;
    tuned.setGrowLength(32);  // on the shared empty body: must not reach the other handles
    EXPECT_EQ(gpEmptyVectorData.growLength, 8);
    EXPECT_EQ(gpEmptyVectorData.length, 0);
    plain.append(1);
    EXPECT_EQ(plain.physicalLength(), 8);
    tuned.append(1);
    EXPECT_EQ(tuned.physicalLength(), 32);
    LumVector<int> shared(tuned);
    shared.setGrowLength(4);
    for (int i = 0; i < 32; ++i) tuned.append(i);
    EXPECT_EQ(tuned.physicalLength(), 64);
    EXPECT_EQ(shared.length(), 1);
}

TEST(LumVectorTest, FailuresRaiseTheirStatus) {
    lumtest::RecordingCrashRecorder recorder;
    LumVector<double> v;
    EXPECT_EQ(thrownStatus([&] { v.last(); }), 2);
    EXPECT_EQ(thrownStatus([&] { v.at(0); }), 24);
    v.append(1.5);
    EXPECT_EQ(thrownStatus([&] { v.at(1); }), 24);
    EXPECT_EQ(thrownStatus([&] { v.at(-1); }), 24);
    EXPECT_EQ(thrownStatus([&] { v.setAt(1, 0); }), 24);
    EXPECT_EQ(thrownStatus([&] { v.removeAt(1); }), 24);
    EXPECT_EQ(thrownStatus([&] { v.insertAt(2, 0); }), 24);
    EXPECT_EQ(thrownStatus([&] { v.reserve(INT_MAX); }), 6);
    EXPECT_EQ(recorder.exceptions.size(), 8u);
    EXPECT_EQ(v.length(), 1);
    EXPECT_EQ(v.last(), 1.5);
}

TEST(LumOsBaseTest, TextCopies) {
    const char16_t* text = u"copy me";
    char16_t* copy = _lumStrdup(text);
    ASSERT_NE(copy, nullptr);
    EXPECT_NE(copy, text);
    EXPECT_EQ(std::u16string(copy), text);
    _lumStrdupFree(copy);
    EXPECT_EQ(_lumStrdup(nullptr), nullptr);
}

// A temporary directory with a file in it, removed at the end.
struct TempTree {
    std::string dir;
    TempTree() {
        char pattern[] = "/tmp/lumstandinsXXXXXX";
        char* made = mkdtemp(pattern);
        char real[PATH_MAX];
        dir = made && realpath(made, real) ? real : "";
        std::ofstream(dir + "/file.txt") << "x";
        mkdir((dir + "/sub").c_str(), 0700);
        symlink((dir + "/file.txt").c_str(), (dir + "/sub/link").c_str());
    }
    ~TempTree() {
        unlink((dir + "/sub/link").c_str());
        rmdir((dir + "/sub").c_str());
        unlink((dir + "/file.txt").c_str());
        rmdir(dir.c_str());
    }
};

TEST(LumOsBaseTest, ComparisonsWithoutCaseFoldBeyondAscii) {
    EXPECT_EQ(LumCharOp::compareNoCase(u"Abc", u"aBC"), 0);
    EXPECT_EQ(LumCharOp::compareNoCase(u"\u00C4RGER", u"\u00E4rger"), 0) << "A with diaeresis";
    EXPECT_EQ(LumCharOp::compareNoCase(u"\u03A3", u"\u03C3"), 0) << "Greek sigma";
    EXPECT_LT(LumCharOp::compareNoCase(u"abc", u"abd"), 0);
    EXPECT_GT(LumCharOp::compareNoCase(u"abcd", u"ABC"), 0);
    // In the C locale the collation ignores case at the secondary strength only.
    EXPECT_EQ(LumCharOp::collateNoCase(u"abc", u"ABC"), 0);
    EXPECT_NE(LumCharOp::collate(u"abc", u"ABC"), 0);
    EXPECT_LT(LumCharOp::collate(u"apple", u"Banana"), 0) << "letters before case";
}

TEST(LumOsBaseTest, PathsAndFiles) {
    TempTree tree;
    ASSERT_FALSE(tree.dir.empty());
    char16_t out[LUM_MAX_PATH];
    std::u16string dir = u16(tree.dir);

    ASSERT_TRUE(LumPathMaker::getFullFileName((dir + u"/sub/../sub/./link").c_str(), out));
    EXPECT_EQ(utf8(out), tree.dir + "/file.txt");  // one file, one text
    ASSERT_TRUE(LumPathMaker::getFullFileName((dir + u"/sub/../new.txt").c_str(), out));
    EXPECT_EQ(utf8(out), tree.dir + "/new.txt");
    char cwd[PATH_MAX];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    ASSERT_EQ(chdir((tree.dir + "/sub").c_str()), 0);
    bool relative = LumPathMaker::getFullFileName(u"../file.txt", out);
    ASSERT_EQ(chdir(cwd), 0);
    EXPECT_TRUE(relative);
    EXPECT_EQ(utf8(out), tree.dir + "/file.txt");
    EXPECT_FALSE(LumPathMaker::getFullFileName(u"", out));
    EXPECT_FALSE(LumPathMaker::getFullFileName(nullptr, out));
    EXPECT_FALSE(LumPathMaker::getFullFileName((dir + u"/" + std::u16string(300, u'n')).c_str(), out));

    ASSERT_TRUE(LumPathMaker::getFileName(u"/a/b.d/name.ext", out, nullptr));
    EXPECT_EQ(utf8(out), "name");
    ASSERT_TRUE(LumPathMaker::getExtFileName(out, u"/a/b.d/name.ext"));
    EXPECT_EQ(utf8(out), ".ext");
    ASSERT_TRUE(LumPathMaker::getExtFileName(out, u"/a/b.d/name"));
    EXPECT_EQ(utf8(out), "");

    EXPECT_TRUE(LumFileSystem::isFileExisting((dir + u"/file.txt").c_str()));
    EXPECT_FALSE(LumFileSystem::isFileExisting((dir + u"/absent").c_str()));
    unsigned fileAttributes = LumFileSystem::getFileAttributes((dir + u"/file.txt").c_str());
    EXPECT_NE(fileAttributes, INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(fileAttributes & LUM_FILE_ATTRIBUTE_DIRECTORY, 0u);
    EXPECT_NE(LumFileSystem::getFileAttributes((dir + u"/sub").c_str()) & LUM_FILE_ATTRIBUTE_DIRECTORY, 0u);
    EXPECT_NE(LumFileSystem::getFileAttributes((dir + u"/sub").c_str()), INVALID_FILE_ATTRIBUTES);
    EXPECT_EQ(LumFileSystem::getFileAttributes((dir + u"/absent").c_str()), INVALID_FILE_ATTRIBUTES);
}

TEST(LumOsBaseTest, CrashRecorderHookAndDefaultRecord) {
    LumCrashRecorder* fallback = kvoreGetCrashRecorder();
    ASSERT_NE(fallback, nullptr);
    {
        lumtest::RecordingCrashRecorder outer;
        EXPECT_EQ(kvoreGetCrashRecorder(), &outer);
        {
            lumtest::RecordingCrashRecorder inner;
            EXPECT_EQ(thrownStatus([] { lumThrowErrorStatus(Kvore::eKeyNotFound, __FILE__, __LINE__); }), 22);
            EXPECT_EQ(inner.exceptions.size(), 1u);
        }
        EXPECT_EQ(kvoreGetCrashRecorder(), &outer);
        EXPECT_TRUE(outer.exceptions.empty());
        EXPECT_EQ(lumSetCrashRecorder(nullptr), &outer);
        EXPECT_EQ(kvoreGetCrashRecorder(), fallback);
        EXPECT_EQ(lumSetCrashRecorder(&outer), nullptr);
    }
    EXPECT_EQ(kvoreGetCrashRecorder(), fallback);

    // The default recorder appends each line, stamped, to the file the environment names.
    std::string path = std::string("/tmp/lumstandins-record-") + std::to_string(getpid()) + ".txt";
    const char* named = std::getenv("LUMRX_CRASH_RECORD");
    std::string saved = named ? named : "";
    setenv("LUMRX_CRASH_RECORD", path.c_str(), 1);
    fallback->recordMessage(u"first line", 0, 0, 0);
    fallback->recordMessage(u"second line", 0, 0, 0);
    fallback->flushRecord();
    if (named) setenv("LUMRX_CRASH_RECORD", saved.c_str(), 1); else unsetenv("LUMRX_CRASH_RECORD");
    std::ifstream in(path);
    std::vector<std::string> lines;
    for (std::string l; std::getline(in, l);) lines.push_back(l);
    unlink(path.c_str());
    ASSERT_EQ(lines.size(), 2u);
    for (int i = 0; i < 2; ++i) {
        std::string text = i ? "second line" : "first line";
        ASSERT_GT(lines[i].size(), text.size() + 1);
        EXPECT_EQ(lines[i].substr(lines[i].size() - text.size()), text);
        EXPECT_TRUE(isdigit(static_cast<unsigned char>(lines[i][0]))) << lines[i];
    }
}

TEST(LumPalTest, PointerListKeepsItsOrder) {
    LumPtrList list;
    EXPECT_EQ(list.GetHeadPosition(), nullptr);
    int a, b, c;
    LUM_POSITION pa = list.AddTail(&a);
    list.AddTail(nullptr);
    LUM_POSITION pc = list.AddTail(&c);
    list.AddTail(&b);
    EXPECT_EQ(list.GetHeadPosition(), pa);
    std::vector<void*> seen;
    for (LUM_POSITION pos = list.GetHeadPosition(); pos;) seen.push_back(list.GetNext(pos));
    EXPECT_EQ(seen, (std::vector<void*>{&a, nullptr, &c, &b}));
    EXPECT_EQ(list.GetNext(pc), &c);
    EXPECT_EQ(list.GetNext(pc), &b);
    EXPECT_EQ(pc, nullptr);
    EXPECT_EQ(list.GetCount(), 4);
}

TEST(LumPalTest, LocaleValueOwnsItsTexts) {
    KvLocale byNumber(0);
    EXPECT_EQ(byNumber.lcid(), 0);
    EXPECT_EQ(utf8(byNumber.language()), "");
    EXPECT_EQ(utf8(byNumber.region()), "");

    std::u16string language = u"de", region = u"AT";
    KvLocale named(language.c_str(), region.c_str());
    language[0] = u'x';
    region[0] = u'x';
    EXPECT_EQ(utf8(named.language()), "de");
    KvLocale moved(std::move(named));
    EXPECT_EQ(utf8(moved.language()), "de");
    EXPECT_EQ(utf8(moved.region()), "AT");
    KvLocale target(0x409);
    target = std::move(moved);
    EXPECT_EQ(utf8(target.region()), "AT");
    target = KvLocale(u"fr", u"CA");
    EXPECT_EQ(utf8(target.language()), "fr");
}

// LumUInfo reads the environment; each case sets it before the first call of its process.
TEST(LumUInfoTest, ProductNamesFromTheEnvironment) {
    setenv("LUMRX_PRODUCT_PREFIX", "Acme", 1);
    setenv("LUMRX_OEM_PRODUCT_NAME", "Acme CAD", 1);
    setenv("LUMRX_LANGUAGE", "de_DE", 1);
    std::vector<char16_t> out(1024, u'?');
    EXPECT_EQ(GetKvoreProductPreName(out.data()), 4);
    EXPECT_EQ(utf8(out.data()), "Acme");
    ASSERT_NE(GetOemProductName(), nullptr);
    EXPECT_EQ(utf8(GetOemProductName()), "Acme CAD");
    ASSERT_NE(kvoreConfig(), nullptr);
    EXPECT_EQ(utf8(kvoreConfig()->language().shortName()), "de_DE");
}

TEST(LumUInfoTest, NoPrefixWhenUnsetAndTheProductIsLumora) {
    unsetenv("LUMRX_PRODUCT_PREFIX");
    unsetenv("LUMRX_OEM_PRODUCT_NAME");
    std::vector<char16_t> out(1024, u'?');
    EXPECT_EQ(GetKvoreProductPreName(out.data()), 0);
    ASSERT_NE(GetOemProductName(), nullptr);
    EXPECT_EQ(utf8(GetOemProductName()), "Lumora");
    setenv("LUMRX_PRODUCT_PREFIX", "", 1);
    EXPECT_EQ(GetKvoreProductPreName(out.data()), 0);
    setenv("LUMRX_OEM_PRODUCT_NAME", "", 1);
    EXPECT_EQ(utf8(GetOemProductName()), "Lumora");
}

// The host's name counts before the environment's, until the host takes it back; a
// change of the environment is seen by the next call.
TEST(LumUInfoTest, TheHostNamesTheProduct) {
    setenv("LUMRX_OEM_PRODUCT_NAME", "Acme CAD", 1);
    EXPECT_EQ(utf8(GetOemProductName()), "Acme CAD");
    std::u16string name = u"Road Designer";
    SetOemProductName(name.c_str());
    name = u"changed";  // the name was copied
    EXPECT_EQ(utf8(GetOemProductName()), "Road Designer");
    SetOemProductName(u"");
    EXPECT_EQ(utf8(GetOemProductName()), "Acme CAD");
    setenv("LUMRX_OEM_PRODUCT_NAME", "Acme Civil", 1);
    const char16_t* first = GetOemProductName();
    EXPECT_EQ(GetOemProductName(), first);
    EXPECT_EQ(utf8(first), "Acme Civil");
    SetOemProductName(nullptr);
    unsetenv("LUMRX_OEM_PRODUCT_NAME");
    EXPECT_EQ(utf8(GetOemProductName()), "Lumora");
}

}  // namespace
