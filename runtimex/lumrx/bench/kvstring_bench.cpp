// KvString against peers measured in the same run: short strings made, measured and
// destroyed (and the heap blocks they take) against std::u16string; find in 4 000 units
// against std::u16string::find; compareNoCase of ASCII text against a plain folding
// loop; and the wide -> narrow -> wide trip of 1 KiB under 1252 and 932 against the bare
// ICU conversions of the same page.
//
// The process code page is fixed at first use, so the program runs itself once more
// under 932 for the round trip of that page; that run prints its own goal row.
#include "kvstring.h"

#include "lumosbase.h"
#include "ratioreporter.h"

#include <benchmark/benchmark.h>
#include <unicode/ucnv.h>

#include <atomic>
#include <cstdlib>
#include <string>

// Every heap block of the process is counted, operator new included, so a benchmark
// can report blocks per step.
extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);
extern "C" void __libc_free(void*);
static std::atomic<long> gBlocks{0};
extern "C" void* malloc(size_t n) { ++gBlocks; return __libc_malloc(n); }
extern "C" void* calloc(size_t n, size_t m) { ++gBlocks; return __libc_calloc(n, m); }
extern "C" void* realloc(void* p, size_t n) { ++gBlocks; return __libc_realloc(p, n); }
extern "C" void free(void* p) { __libc_free(p); }

namespace {

double gShortBlocksPerIteration = -1;

double blocksPerIteration(benchmark::State& state, long before) {
    double perIteration = double(gBlocks - before) / double(state.iterations());
    state.counters["blocks/iter"] = perIteration;
    return perIteration;
}

// Two short texts, one of each kind: 2 units and 6 bytes, both inline in a KvString.
// The texts come through an opaque pointer on both sides, as texts read at run time do,
// so that neither side measures a length the compiler worked out.
const char16_t* volatile gShortWide = u"ab";
const char* volatile gShortNarrow = "abcdef";
const char16_t* volatile gShortNarrowAsWide = u"abcdef";

void BM_ShortStrings_KvString(benchmark::State& state) {
    long before = gBlocks;
    for (auto _ : state) {
        const char16_t* w = gShortWide;
        const char* n = gShortNarrow;
        KvString wide(w);
        KvString narrow(n);
        benchmark::DoNotOptimize(wide.length() + narrow.length());
    }
    gShortBlocksPerIteration = blocksPerIteration(state, before);
}

void BM_ShortStrings_U16String(benchmark::State& state) {
    long before = gBlocks;
    for (auto _ : state) {
        const char16_t* w = gShortWide;
        const char16_t* n = gShortNarrowAsWide;
        std::u16string wide(w);
        std::u16string narrow(n);
        benchmark::DoNotOptimize(wide.size() + narrow.size());
    }
    blocksPerIteration(state, before);
}

std::u16string haystack() {
    std::u16string text;
    while (text.size() < 4000 - 18) text += u"lorem ipsum dolor sit amet, ";
    return text.substr(0, 4000 - 18) + u"needle in the text";
}

void BM_Find4000_KvString(benchmark::State& state) {
    KvString s(haystack().c_str());
    for (auto _ : state) benchmark::DoNotOptimize(s.find(u"needle"));
}

void BM_Find4000_U16String(benchmark::State& state) {
    const std::u16string s = haystack();
    for (auto _ : state) benchmark::DoNotOptimize(s.find(u"needle"));
}

const std::u16string kLeft = u"Software\\Lumora\\Applications\\SampleModule\\Commands\\Group";
const std::u16string kRight = u"SOFTWARE\\LUMORA\\APPLICATIONS\\SAMPLEMODULE\\COMMANDS\\GROUP";

void BM_CompareNoCaseAscii_KvString(benchmark::State& state) {
    KvString s(kLeft.c_str());
    for (auto _ : state) benchmark::DoNotOptimize(s.compareNoCase(kRight.c_str()));
}

int plainCompareNoCase(const char16_t* a, const char16_t* b) {
    for (;; ++a, ++b) {
        char16_t x = (*a >= u'A' && *a <= u'Z') ? char16_t(*a + 32) : *a;
        char16_t y = (*b >= u'A' && *b <= u'Z') ? char16_t(*b + 32) : *b;
        if (x != y || !x) return int(x) - int(y);
    }
}

void BM_CompareNoCaseAscii_PlainLoop(benchmark::State& state) {
    for (auto _ : state) benchmark::DoNotOptimize(plainCompareNoCase(kLeft.c_str(), kRight.c_str()));
}

// 1 KiB of wide text: ASCII with, every 16 units, two characters of the page.
std::u16string kibText(unsigned page) {
    std::u16string text;
    while (text.size() < 1024) text += page == 932 ? u"Plain text \u3042\u30A2 a" : u"Plain text \u00e9\u00e8 a";
    return text.substr(0, 1024);
}

void roundTripKvString(benchmark::State& state) {
    const std::u16string text = kibText(lumGetACP());
    for (auto _ : state) {
        KvString wide(text.c_str());
        KvString back(wide.ansiPtr());
        benchmark::DoNotOptimize(back.kwszPtr());
    }
    if (std::u16string(KvString(KvString(text.c_str()).ansiPtr()).kwszPtr()) != text)
        state.SkipWithError("the text did not survive the trip");
}

void roundTripIcu(benchmark::State& state) {
    const std::u16string text = kibText(lumGetACP());
    UErrorCode err = U_ZERO_ERROR;
    UConverter* c = ucnv_open(("windows-" + std::to_string(lumGetACP())).c_str(), &err);
    std::string narrow(4 * text.size(), '\0');
    std::u16string back(text.size() + 1, u'\0');
    for (auto _ : state) {
        err = U_ZERO_ERROR;
        int bytes = ucnv_fromUChars(c, &narrow[0], int(narrow.size()), reinterpret_cast<const UChar*>(text.data()),
                                    int(text.size()), &err);
        int units = ucnv_toUChars(c, reinterpret_cast<UChar*>(&back[0]), int(back.size()), narrow.data(), bytes, &err);
        benchmark::DoNotOptimize(units);
    }
    ucnv_close(c);
    if (U_FAILURE(err)) state.SkipWithError("ICU failed");
}

std::string pageName(const char* name) { return std::string(name) + "/" + std::to_string(lumGetACP()); }

void registerRoundTrip() {
    benchmark::RegisterBenchmark(pageName("BM_RoundTrip1KiB_KvString").c_str(), roundTripKvString);
    benchmark::RegisterBenchmark(pageName("BM_RoundTrip1KiB_Icu").c_str(), roundTripIcu);
}

void registerOthers() {
    benchmark::RegisterBenchmark("BM_ShortStrings_KvString", BM_ShortStrings_KvString);
    benchmark::RegisterBenchmark("BM_ShortStrings_U16String", BM_ShortStrings_U16String);
    benchmark::RegisterBenchmark("BM_Find4000_KvString", BM_Find4000_KvString);
    benchmark::RegisterBenchmark("BM_Find4000_U16String", BM_Find4000_U16String);
    benchmark::RegisterBenchmark("BM_CompareNoCaseAscii_KvString", BM_CompareNoCaseAscii_KvString);
    benchmark::RegisterBenchmark("BM_CompareNoCaseAscii_PlainLoop", BM_CompareNoCaseAscii_PlainLoop);
}

// The ratio reporter without colours: a colour reset would otherwise lead the line of
// the first goal row, which the gathering of ./bench.sh reads from the line start.
class PlainReporter : public RatioReporter {
public:
    PlainReporter() { output_options_ = OO_Tabular; }
};

// The same program with the same arguments under code page 932.
void runUnder932(int argc, char** argv) {
    std::string command = "LUMRX_ACP=932 KVSTRING_BENCH_PAGE_RUN=1";
    for (int i = 0; i < argc; ++i) command += " '" + std::string(argv[i]) + "'";
    std::fflush(stdout);
    if (std::system(command.c_str()) != 0) std::fprintf(stderr, "the run under 932 failed\n");
}

}  // namespace

int main(int argc, char** argv) {
    bool pageRun = std::getenv("KVSTRING_BENCH_PAGE_RUN") != nullptr;
    if (!pageRun) {
        setenv("LUMRX_ACP", "1252", 1);
        runUnder932(argc, argv);
    }
    benchmark::Initialize(&argc, argv);
    registerRoundTrip();
    if (!pageRun) registerOthers();
    PlainReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::string page = std::to_string(lumGetACP());
    reporter.printGoal("KvString 1 KiB wide -> narrow -> wide, page " + page,
                       "ICU ucnv_fromUChars + ucnv_toUChars", pageName("BM_RoundTrip1KiB_KvString"),
                       pageName("BM_RoundTrip1KiB_Icu"), 1.3);
    if (pageRun) return 0;
    RatioReporter::printNote("code-page conversion tables, built once per process at first use of a page: 129 KiB "
                             "for a single-byte page, 257 KiB for a double-byte page, shared by all threads "
                             "(before: one ICU converter per thread and page)");
    reporter.printGoal("KvString of 2 units and of 6 bytes: make, length, destroy", "std::u16string",
                       "BM_ShortStrings_KvString", "BM_ShortStrings_U16String", 1.5);
    reporter.printGoal("KvString::find in 4 000 units", "std::u16string::find", "BM_Find4000_KvString",
                       "BM_Find4000_U16String", 1.2);
    reporter.printGoal("KvString::compareNoCase of ASCII text", "a plain fold-and-compare loop",
                       "BM_CompareNoCaseAscii_KvString", "BM_CompareNoCaseAscii_PlainLoop", 1.5);
    if (gShortBlocksPerIteration >= 0)
        RatioReporter::printNote("KvString of 2 units and of 6 bytes: " + std::to_string(gShortBlocksPerIteration) +
                                 " heap blocks per make/length/destroy (goal 0)");
    benchmark::Shutdown();
    return 0;
}
