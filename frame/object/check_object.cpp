// Checks the instructions of the linked library, whatever made them: reads a disassembly (objdump -d -w -M intel
// --no-show-raw-insn, of a file that still has its symbols) from standard input.
//
// Kernels may execute the VEX forms that the first processors with AVX know, 256 bits wide for floating point only,
// and a few general instructions; all else, the rare routines, scalar SSE2, x87 and general instructions. Prints one
// line for each breach, which begins with the function's name; exits with 1 if there is any.
#include <cstdlib>
#include <iostream>
#include <regex>
#include <string>
#include <unordered_map>

#include "frame/description/operations.hpp"

namespace {

using namespace tuvo;

// Mnemonics, as regular expressions.
const std::regex kernel_any_width(
    "v(add|sub|mul|div|min|max|sqrt|round|cmp\\w*|and|andn|or|xor|blendv?|unpck[lh]|shuf|permil|movmsk|mov[au])p[sd]|"
    "v(rcp|rsqrt)ps|vcvtdq2p[sd]|vcvtt?p[sd]2dq|vcvtps2pd|vcvtpd2ps|vmovddup|v(insert|extract|perm2)f128|vzeroupper",
    std::regex::optimize);
const std::regex kernel_128(
    "v(add|sub|mul|div|min|max|sqrt|round|cmp\\w*)s[sd]|v(rcp|rsqrt)ss|vcvt(ss2sd|sd2ss|si2s[sd]|t?s[sd]2si)|vmovs[sd]|"
    "vmov[dq]|vmovdq[au]|vmov[lh]p[sd]|vmov(lh|hl)ps|v(insert|extract)ps|vpshuf([bd]|[lh]w)|vpunpck[lh](bw|wd|q?dq)|"
    "vp(add|sub)[bwdq]|vpmul(ld|u?dq)|vp(min|max)[su][bwd]|vp(and|andn|or|xor)|vps(ll|rl)(w|d|q|dq)|vpsra[wd]|"
    "vpcmp(eq|gt)[bwdq]|vpblend(w|vb)|vpack[su]s(wb|dw)|vpmovmskb|vpmov[sz]x(bw|bd|bq|wd|wq|dq)|vp(extr|insr)[bwdq]",
    std::regex::optimize);
const std::regex kernel_general("mov|movsxd|lea|push|leave|add|sub|sbb|neg|and|or|xor|shl|inc|cmp|test|bt|j[a-z]+|call|ret|nop|"
                                "setne|fnstcw",  // the control word is looked at, and never set
                                std::regex::optimize);
const std::regex rare_routine(
    // SSE2: scalar arithmetic, moves and logic
    "(add|sub|mul|div|min|max|sqrt|cmp\\w*|u?comi)s[sd]|(rcp|rsqrt)ss|cvt(ss2sd|sd2ss|si2s[sd]|t?s[sd]2si)|"
    "mov(s[sd]|[dq]|ap[sd]|mskp[sd])|(and|andn|or|xor)p[sd]|p(and|andn|or|xor)|"
    // x87
    "f(ld(1|z|pi|l2e|l2t|ln2|lg2|cw)?|nstcw|nstsw|stp?|ild|istp?|i?(add|mul|subr?|divr?)p?|chs|abs|sqrt|rndint|scale|"
    "2xm1|yl2x(p1)?|patan|ptan|sin|cos|sincos|prem1?|xch|u?com(i?p?|pp)|tst|xam|xtract|cmovn?(e|be?|u))|"
    // general
    "mov(abs|zx|sx|sxd)?|lea|push|pop|leave|add|adc|sub|sbb|i?mul|i?div|neg|not|and|or|xor|inc|dec|sh[lr]d?|sar|ro[lr]|"
    "bswap|cmp|test|bt[crs]?|bs[fr]|cdqe?|cqo|cwde|set[a-z]+|cmov[a-z]+|j[a-z]+|call|ret|nop",
    std::regex::optimize);

/// Which mnemonics a set holds, as far as it has been asked.
using Known = std::unordered_map<std::string, bool>;

bool matches(const std::regex& set, Known& known, const std::string& mnemonic) {
    const auto [entry, added] = known.try_emplace(mnemonic, false);
    if (added) entry->second = std::regex_match(mnemonic, set);
    return entry->second;
}

bool contains(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

/// Whether the operands name a register that came after AVX, one of MMX, or a segment.
bool strange(const std::string& operands) {
    for (std::size_t at = operands.find("mm"); at != std::string::npos; at = operands.find("mm", at + 1)) {
        const char kind = at > 0 ? operands[at - 1] : ' ';
        if ((kind != 'x' && kind != 'y') || std::atoi(operands.c_str() + at + 2) > 15) return true;
    }
    return contains(operands, "{") || contains(operands, "fs:") || contains(operands, "gs:");
}

/// The function that is being read.
struct Function {
    std::string name = "input";
    bool is_kernel = false;
    const Family* family = nullptr;  ///< of a kernel, null if there is no such export
    int calls = 0;
    bool wide = false;          ///< 256-bit work, other than keeping preserved registers
    bool unclear_call = false;  ///< a call without a vzeroupper shortly before it
    int since_clear = 1000;     ///< instructions since the last vzeroupper, many if there is 256-bit work between
};

struct Check {
    Function function;
    int kernels = 0, faults = 0;
    Known any_width, only_128, general, rare;
};

void report(Check& check, const std::string& what) {
    ++check.faults;
    std::cerr << check.function.name << ": " << what << "\n";
}

void refuse(Check& check, const std::string& instruction) { report(check, "not allowed: " + instruction); }

/// The end of a function.
void finish(Check& check) {
    const Function& f = check.function;
    if (!f.is_kernel) return;
    if (!f.family)
        report(check, "no such export");
    else if (f.calls != int(f.family->has_rare))
        report(check, std::to_string(f.calls) + " calls of a rare routine");
    else if (f.wide && f.unclear_call)
        report(check, "no vzeroupper before the call, after 256-bit work");
}

void start(Check& check, const std::string& name) {
    Function& f = check.function = {};
    f.name = name;
    f.is_kernel = name.starts_with(export_prefix);
    if (!f.is_kernel) return;
    ++check.kernels;
    const std::vector<ParsedName> readings = parse_short_name(name.substr(export_prefix.size()));
    if (!readings.empty()) f.family = readings[0].family;
}

bool known_in_kernel(Check& check, const std::string& mnemonic, const std::string& operands) {
    Function& f = check.function;
    ++f.since_clear;
    if (mnemonic == "vzeroupper") f.since_clear = 0;
    const bool any_width = matches(kernel_any_width, check.any_width, mnemonic);
    if (!contains(operands, "ymm"))
        return any_width || matches(kernel_128, check.only_128, mnemonic) ||
               matches(kernel_general, check.general, mnemonic);
    static const std::regex keeps("(ymm([89]|1[0-5]),)?YMMWORD PTR \\[r[sb]p[^\\]]*\\](,ymm([89]|1[0-5]))?");
    if (mnemonic != "vmovups" || !std::regex_match(operands, keeps)) {
        f.wide = true;
        f.since_clear = 1000;
    }
    return any_width;
}

/// Direct jumps within the function; calls of whole functions that are no kernels.
void check_transfer(Check& check, const std::string& mnemonic, const std::string& operands, const std::string& text) {
    constexpr int most_parameters = 4;  // of a rare routine
    Function& f = check.function;
    const std::size_t open = operands.find('<');
    if (open == std::string::npos || contains(operands, "[")) return refuse(check, text);
    std::string target = operands.substr(open + 1, operands.size() - open - 2);
    const bool inside = contains(target, "+");
    target = target.substr(0, target.find('+'));
    if (mnemonic != "call") {
        if (f.is_kernel && target != f.name) refuse(check, text);
        return;
    }
    if (target.starts_with(export_prefix) || inside) return refuse(check, text);
    ++f.calls;
    if (f.since_clear > most_parameters + 1) f.unclear_call = true;
}

void check_instruction(Check& check, const std::string& text) {
    const std::string mnemonic = text.substr(0, text.find(' '));
    const std::size_t begin = text.find_first_not_of(' ', mnemonic.size());
    const std::string operands = begin == std::string::npos ? "" : text.substr(begin);
    if (contains(text.substr(0, text.find('<')), "nop") || text == "xchg   ax,ax") return;  // padding
    const bool known = check.function.is_kernel ? known_in_kernel(check, mnemonic, operands)
                                                : matches(rare_routine, check.rare, mnemonic);
    if (!known) return refuse(check, text);
    if (mnemonic == "call" || mnemonic[0] == 'j')
        check_transfer(check, mnemonic, operands, text);
    else if (strange(operands))
        refuse(check, text);
}

void check_line(Check& check, const std::string& text) {
    if (text.ends_with(">:")) {
        finish(check);
        start(check, text.substr(text.find('<') + 1, text.size() - text.find('<') - 3));
    } else if (const std::size_t tab = text.find('\t'); tab != std::string::npos) {
        std::string code = text.substr(tab + 1, text.find('#', tab) - tab - 1);
        code.erase(code.find_last_not_of(' ') + 1);
        check_instruction(check, code);
    }
}

}  // namespace

int main() {
    std::ios::sync_with_stdio(false);
    Check check;
    std::string line;
    while (std::getline(std::cin, line)) check_line(check, line);
    finish(check);
    if (check.kernels == 0) report(check, "no kernels in the input");
    return check.faults ? 1 : 0;
}
