// Parsing of absolute and relative names by the path class, against the peer of
// std::filesystem::path with lexically_normal over the same names plus one stat
// (std::filesystem::status) of each result, as the parse looks each name up once;
// measured in the same run. Names lie on a drive mapped to a temporary directory.
#include "ctyuipathname.h"

#include "ratioreporter.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

const std::vector<std::u16string> kAbsolute = {
    u"B:\\projects\\site\\drawing.dwg", u"B:/projects/site/xrefs/base plan.dwg",
    u"\"B:\\projects\\archive\\2023\\old.bak\"", u"b:\\a\\b\\c\\d\\e\\f\\g.txt"};
const std::vector<std::u16string> kRelative = {u"drawing.dwg", u"xrefs\\base plan.dwg",
                                               u"..\\archive\\old.bak", u"a/b/c/d/e/f/g.txt"};

fs::path Directory() {
    static const fs::path dir = [] {
        fs::path d = fs::temp_directory_path() / "ctyuipathname-bench";
        fs::create_directories(d / "projects" / "site");
        setenv("LUMRX_DRIVES", ("B=" + d.string()).c_str(), 1);
        return d;
    }();
    return dir;
}

std::vector<fs::path> Posix(const std::vector<std::u16string>& names) {
    std::vector<fs::path> out;
    for (const std::u16string& name : names) {
        std::u16string text = name.size() > 1 && name[1] == u':' ? name.substr(2) : name;
        for (char16_t& c : text)
            if (c == u'\\') c = u'/';
        out.push_back(fs::path(Directory().string()) / fs::path(text));
    }
    return out;
}

void BM_ParseAbsolute(benchmark::State& state) {
    Directory();
    CTyUiPathname path;
    for (auto _ : state)
        for (const std::u16string& name : kAbsolute) benchmark::DoNotOptimize(path.ParseRelative(name.c_str(), nullptr));
}

void BM_ParseRelative(benchmark::State& state) {
    Directory();
    CTyUiPathname base, path;
    base.ParseRelative(u"B:\\projects\\site\\", nullptr);
    for (auto _ : state)
        for (const std::u16string& name : kRelative) benchmark::DoNotOptimize(path.ParseRelative(name.c_str(), &base));
}

// Peer: the standard library's path from the same texts, made absolute and normal, and
// one stat of the result.
void BM_BaselineAbsolute(benchmark::State& state) {
    const std::vector<fs::path> names = Posix(kAbsolute);
    std::error_code error;
    for (auto _ : state)
        for (const fs::path& name : names) {
            fs::path normal = fs::path(name.native()).lexically_normal();
            benchmark::DoNotOptimize(fs::status(normal, error));
        }
}

void BM_BaselineRelative(benchmark::State& state) {
    const fs::path base = Directory() / "projects" / "site";
    std::vector<std::string> names;
    for (const std::u16string& name : kRelative) {
        std::string text(name.begin(), name.end());
        for (char& c : text)
            if (c == '\\') c = '/';
        names.push_back(text);
    }
    std::error_code error;
    for (auto _ : state)
        for (const std::string& name : names) {
            fs::path normal = (base / fs::path(name)).lexically_normal();
            benchmark::DoNotOptimize(fs::status(normal, error));
        }
}

}  // namespace

BENCHMARK(BM_BaselineAbsolute);
BENCHMARK(BM_ParseAbsolute);
BENCHMARK(BM_BaselineRelative);
BENCHMARK(BM_ParseRelative);

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    const char* peer = "std::filesystem::path::lexically_normal + one stat";
    std::printf("\n");
    reporter.printGoal("CTyUiPathname::ParseRelative, absolute names", peer, "BM_ParseAbsolute",
                       "BM_BaselineAbsolute", 1.5);
    reporter.printGoal("CTyUiPathname::ParseRelative, relative names", peer, "BM_ParseRelative",
                       "BM_BaselineRelative", 1.5);
    benchmark::Shutdown();
    return 0;
}
