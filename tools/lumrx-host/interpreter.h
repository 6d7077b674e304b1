// The command interpreter of lumrx-host: reads commands line by line from a script or
// from the terminal, splits them into words and runs them through a HostCommands.
// One command per line; words are separated by blanks, "double quotes" keep blanks
// (\" and \\ inside them stand for " and \), and a word that begins with '#' starts a
// comment.
#pragma once

#include <istream>
#include <string>
#include <vector>

namespace lumrxhost {

class HostCommands;

// A command that can't be carried out; its text is shown as an error and the next
// command follows.
struct CommandError {
    std::string message;
};

class Interpreter {
public:
    static constexpr size_t kMaxLineLength = 4096;

    explicit Interpreter(HostCommands& commands) : m_commands(commands) {}

    // Runs the commands of `in` until its end or `quit`. `source` names the input in
    // error messages. Interactive: a prompt before each line and no echo; otherwise
    // each line is echoed after "> " so that the output reads as a transcript.
    void run(std::istream& in, const std::string& source, bool interactive);
    // The number of lines that failed so far.
    int failures() const { return m_failures; }

    // Splits a line into words; throws CommandError for an unterminated quote.
    static std::vector<std::string> split(const std::string& line);

private:
    // Reads one line of at most kMaxLineLength bytes; the rest of a longer line is
    // read and dropped, and `tooLong` set. False at the end of the input.
    static bool readLine(std::istream& in, std::string& line, bool& tooLong);
    void fail(const std::string& source, int lineNumber, bool interactive, const std::string& text);

    HostCommands& m_commands;
    int m_failures = 0;
};

}  // namespace lumrxhost
