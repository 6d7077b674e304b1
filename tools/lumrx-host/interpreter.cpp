#include "interpreter.h"

#include "commands.h"
#include "hostservices.h"

#include <cstdio>

namespace lumrxhost {

bool Interpreter::readLine(std::istream& in, std::string& line, bool& tooLong) {
    line.clear();
    tooLong = false;
    std::istream::int_type c = in.get();
    if (c == std::istream::traits_type::eof()) return false;
    for (; c != std::istream::traits_type::eof() && c != '\n'; c = in.get()) {
        if (line.size() < kMaxLineLength)
            line.push_back(char(c));
        else
            tooLong = true;
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    return true;
}

std::vector<std::string> Interpreter::split(const std::string& line) {
    std::vector<std::string> words;
    size_t i = 0;
    while (i < line.size()) {
        char c = line[i];
        if (c == ' ' || c == '\t') {
            ++i;
            continue;
        }
        if (c == '#') break;
        std::string word;
        while (i < line.size() && line[i] != ' ' && line[i] != '\t') {
            if (line[i] != '"') {
                word.push_back(line[i++]);
                continue;
            }
            ++i;  // opening quote
            bool closed = false;
            while (i < line.size()) {
                char q = line[i++];
                if (q == '"') {
                    closed = true;
                    break;
                }
                if (q == '\\' && i < line.size() && (line[i] == '"' || line[i] == '\\')) q = line[i++];
                word.push_back(q);
            }
            if (!closed) throw CommandError{"a double quote is not closed"};
        }
        words.push_back(word);
    }
    return words;
}

void Interpreter::fail(const std::string& source, int lineNumber, bool interactive,
                       const std::string& text) {
    ++m_failures;
    if (interactive)
        printError("error: " + text);
    else
        printError(source + ":" + std::to_string(lineNumber) + ": error: " + text);
}

void Interpreter::run(std::istream& in, const std::string& source, bool interactive) {
    std::string line;
    bool tooLong = false;
    int lineNumber = 0;
    for (;;) {
        if (interactive) {
            std::printf("lumrx> ");
            std::fflush(stdout);
        }
        if (!readLine(in, line, tooLong)) break;
        ++lineNumber;
        if (tooLong) {
            fail(source, lineNumber, interactive,
                 "the line is longer than " + std::to_string(kMaxLineLength) + " bytes; it was not run");
            continue;
        }
        size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos) continue;
        if (!interactive) std::printf("%s%s\n", line[first] == '#' ? "" : "> ", line.c_str() + first);
        try {
            std::vector<std::string> words = split(line);
            if (words.empty()) continue;
            m_commands.execute(words);
        } catch (const CommandError& e) {
            fail(source, lineNumber, interactive, e.message);
        } catch (LumException* e) {
            // A fatal report of the runtime: the command is over, the session goes on.
            std::string text = utf8(e->description());
            delete e;
            fail(source, lineNumber, interactive, "the runtime reported a fatal error: " + text);
        }
        if (m_commands.quitRequested()) return;
    }
    if (interactive) std::printf("\n");
}

}  // namespace lumrxhost
