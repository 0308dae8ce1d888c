// Scripts for the restore commands.
#include "policy/common/restore_script.h"

#include <cstdlib>
#include <exception>
#include <iomanip>
#include <locale>
#include <sstream>

#include "log.h"
#include "utils/process.h"

namespace nm {

namespace {

constexpr char kRefusal[] = "Error occurred at line: ";

}  // namespace

std::string here_document(const std::string& head, const std::string& lines) {
    return head + "\n" + lines + "EOF";
}

std::string table_script(const std::string& head, const std::string& table, const std::string& lines) {
    return here_document(head, "*" + table + "\n" + lines + "COMMIT\n");
}

std::string append_rule(const std::string& chain, const std::string& rest) {
    return "-A " + chain + rest + "\n";
}

std::string condition_match(const std::string& name, bool negated) {
    return std::string(" -m condition") + (negated ? " !" : "") + " --condition " + name;
}

std::string hex_mark(uint32_t value, int digits) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << "0x" << std::hex << std::setfill('0') << std::setw(digits) << value;
    return text.str();
}

std::string unmarked_match(const std::string& mask, bool negated) {
    return std::string(" -m mark") + (negated ? " !" : "") + " --mark 0x0/" + mask;
}

std::string set_field(const std::string& mark, uint32_t mask) {
    return " -j VTARGET --set-xmark " + mark + "/" + std::to_string(mask);
}

std::optional<int> refused_line(const std::string& script) {
    std::string output;
    try {
        output = exec(script.c_str());
    } catch (const std::exception& error) {
        NM_LOG(Error) << "Restore: " << error.what();
        return 0;
    }
    const size_t refusal = output.find(kRefusal);
    if (!output.empty()) {
        NM_LOG(Error) << "Restore: "
                      << output;  // also what does not count as a refusal, like a missing chain
    }
    if (refusal == std::string::npos) {
        return std::nullopt;
    }
    return atoi(output.c_str() + refusal + sizeof(kRefusal) - 1);
}

}  // namespace nm
