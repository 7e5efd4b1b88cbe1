#include "demo/narration.h"

#include <iomanip>
#include <iostream>
#include <sstream>

namespace updater {

namespace {

int& FailedChecks() {
    static int count = 0;
    return count;
}

}  // namespace

void Tell(const std::string& line) {
    std::cout << line << '\n' << std::flush;
}

void TellLines(const std::string& text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        Tell("          | " + line);
    }
}

void TellRecord(const TimedRecord& record) {
    std::ostringstream line;
    line << "  [" << std::fixed << std::setprecision(1) << std::setw(4) << record.seconds << " s] "
         << std::left << std::setw(12) << record.state << record.message;
    Tell(line.str());
}

void TellCheck(bool held, const std::string& promise) {
    Tell((held ? "  ok      " : "  FAILED  ") + promise);
    FailedChecks() += held ? 0 : 1;
}

void TellNoDifferences(const std::vector<std::string>& differences, const std::string& promise) {
    TellCheck(differences.empty(), promise);
    for (const std::string& difference : differences) {
        Tell("            " + difference);
    }
}

int CountFailedChecks() {
    return FailedChecks();
}

}  // namespace updater
