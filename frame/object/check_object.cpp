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

/// A set of mnemonics, given as a regular expression.
class Mnemonics {
public:
    explicit Mnemonics(const char* expression) : expression_(expression, std::regex::optimize) {}
    bool contain(const std::string& mnemonic) {
        const auto [entry, added] = known_.try_emplace(mnemonic, false);
        if (added) entry->second = std::regex_match(mnemonic, expression_);
        return entry->second;
    }

private:
    std::regex expression_;
    std::unordered_map<std::string, bool> known_;
};

Mnemonics kernel_any_width(
    "v(add|sub|mul|div|min|max|sqrt|round|cmp\\w*|and|andn|or|xor|blendv?|unpck[lh]|shuf|permil|movmsk|mov[au])p[sd]|"
    "v(rcp|rsqrt)ps|vcvtdq2p[sd]|vcvtt?p[sd]2dq|vcvtps2pd|vcvtpd2ps|vmovddup|v(insert|extract|perm2)f128|vzeroupper");
Mnemonics kernel_128(
    "v(add|sub|mul|div|min|max|sqrt|round|cmp\\w*)s[sd]|v(rcp|rsqrt)ss|vcvt(ss2sd|sd2ss|si2s[sd]|t?s[sd]2si)|vmovs[sd]|"
    "vmov[dq]|vmovdq[au]|vmov[lh]p[sd]|vmov(lh|hl)ps|v(insert|extract)ps|vpshuf([bd]|[lh]w)|vpunpck[lh](bw|wd|q?dq)|"
    "vp(add|sub)[bwdq]|vpmul(ld|u?dq)|vp(min|max)[su][bwd]|vp(and|andn|or|xor)|vps(ll|rl)(w|d|q|dq)|vpsra[wd]|"
    "vpcmp(eq|gt)[bwdq]|vpblend(w|vb)|vpack[su]s(wb|dw)|vpmovmskb|vpmov[sz]x(bw|bd|bq|wd|wq|dq)|vp(extr|insr)[bwdq]");
Mnemonics kernel_general("mov|movsxd|lea|push|leave|add|sub|and|or|xor|shl|inc|cmp|test|bt|j[a-z]+|call|ret|nop");
Mnemonics rare_routine(
    // SSE2: scalar arithmetic, moves and logic
    "(add|sub|mul|div|min|max|sqrt|cmp\\w*|u?comi)s[sd]|(rcp|rsqrt)ss|cvt(ss2sd|sd2ss|si2s[sd]|t?s[sd]2si)|"
    "mov(s[sd]|[dq]|ap[sd]|mskp[sd])|(and|andn|or|xor)p[sd]|p(and|andn|or|xor)|"
    // x87
    "f(ld(1|z|pi|l2e|l2t|ln2|lg2|cw)?|nstcw|nstsw|stp?|ild|istp?|i?(add|mul|subr?|divr?)p?|chs|abs|sqrt|rndint|scale|"
    "2xm1|yl2x(p1)?|patan|ptan|sin|cos|sincos|prem1?|xch|u?com(i?p?|pp)|tst|xam|xtract|cmovn?(e|be?|u))|"
    // general
    "mov(abs|zx|sx|sxd)?|lea|push|pop|leave|add|adc|sub|sbb|i?mul|i?div|neg|not|and|or|xor|inc|dec|sh[lr]d?|sar|ro[lr]|"
    "bswap|cmp|test|bt[crs]?|bs[fr]|cdqe?|cqo|cwde|set[a-z]+|cmov[a-z]+|j[a-z]+|call|ret|nop");

bool contains(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

/// Whether the operands name a register that came after AVX, one of MMX, or a segment.
bool strange(const std::string& operands) {
    for (std::size_t at = operands.find("mm"); at != std::string::npos; at = operands.find("mm", at + 1)) {
        const char kind = at > 0 ? operands[at - 1] : ' ';
        if ((kind != 'x' && kind != 'y') || std::atoi(operands.c_str() + at + 2) > 15) return true;
    }
    return contains(operands, "{") || contains(operands, "fs:") || contains(operands, "gs:");
}

class Checker {
public:
    int faults() const { return faults_; }

    void line(const std::string& text) {
        if (text.ends_with(">:")) {
            finish();
            start(text.substr(text.find('<') + 1, text.size() - text.find('<') - 3));
        } else if (const std::size_t tab = text.find('\t'); tab != std::string::npos) {
            std::string code = text.substr(tab + 1, text.find('#', tab) - tab - 1);
            code.erase(code.find_last_not_of(' ') + 1);
            instruction(code);
        }
    }

    /// The end of a function; and of the file.
    void finish() {
        if (!is_kernel_) return;
        if (!family_)
            fault("no such export");
        else if (calls_ != int(family_->has_rare))
            fault(std::to_string(calls_) + " calls of a rare routine");
        else if (wide_ && unclear_call_)
            fault("no vzeroupper before the call, after 256-bit work");
    }

    void finish_file() {
        finish();
        if (kernels_ == 0) fault("no kernels in the input");
    }

private:
    static constexpr int most_parameters = 4;  // of a rare routine

    std::string function_ = "input";
    bool is_kernel_ = false;
    const Family* family_ = nullptr;
    int kernels_ = 0, faults_ = 0;
    int calls_ = 0;
    bool wide_ = false;          ///< 256-bit work, other than keeping preserved registers
    bool unclear_call_ = false;  ///< a call without a vzeroupper shortly before it
    int since_clear_ = 0;        ///< instructions since the last vzeroupper, many if there is 256-bit work between

    void fault(const std::string& what) {
        ++faults_;
        std::cerr << function_ << ": " << what << "\n";
    }

    void refuse(const std::string& instruction) { fault("not allowed: " + instruction); }

    void start(const std::string& name) {
        function_ = name;
        is_kernel_ = name.starts_with(export_prefix);
        family_ = nullptr;
        calls_ = 0;
        wide_ = unclear_call_ = false;
        since_clear_ = 1000;
        if (!is_kernel_) return;
        ++kernels_;
        const std::vector<ParsedName> readings = parse_short_name(name.substr(export_prefix.size()));
        if (!readings.empty()) family_ = readings[0].family;
    }

    void instruction(const std::string& text) {
        const std::string mnemonic = text.substr(0, text.find(' '));
        const std::size_t begin = text.find_first_not_of(' ', mnemonic.size());
        const std::string operands = begin == std::string::npos ? "" : text.substr(begin);
        if (contains(text.substr(0, text.find('<')), "nop") || text == "xchg   ax,ax") return;  // padding
        const bool known = is_kernel_ ? known_in_kernel(mnemonic, operands) : rare_routine.contain(mnemonic);
        if (!known) return refuse(text);
        if (mnemonic == "call" || mnemonic[0] == 'j')
            transfer(mnemonic, operands, text);
        else if (strange(operands))
            refuse(text);
    }

    bool known_in_kernel(const std::string& mnemonic, const std::string& operands) {
        ++since_clear_;
        if (mnemonic == "vzeroupper") since_clear_ = 0;
        const bool any_width = kernel_any_width.contain(mnemonic);
        if (!contains(operands, "ymm"))
            return any_width || kernel_128.contain(mnemonic) || kernel_general.contain(mnemonic);
        static const std::regex keeps("(ymm([89]|1[0-5]),)?YMMWORD PTR \\[r[sb]p[^\\]]*\\](,ymm([89]|1[0-5]))?");
        if (mnemonic != "vmovups" || !std::regex_match(operands, keeps)) {
            wide_ = true;
            since_clear_ = 1000;
        }
        return any_width;
    }

    /// Direct jumps within the function; calls of whole functions that are no kernels.
    void transfer(const std::string& mnemonic, const std::string& operands, const std::string& text) {
        const std::size_t open = operands.find('<');
        if (open == std::string::npos || contains(operands, "[")) return refuse(text);
        std::string target = operands.substr(open + 1, operands.size() - open - 2);
        const bool inside = contains(target, "+");
        target = target.substr(0, target.find('+'));
        if (mnemonic != "call") {
            if (is_kernel_ && target != function_) refuse(text);
            return;
        }
        if (target.starts_with(export_prefix) || inside) return refuse(text);
        ++calls_;
        if (since_clear_ > most_parameters + 1) unclear_call_ = true;
    }
};

}  // namespace

int main() {
    std::ios::sync_with_stdio(false);
    Checker checker;
    std::string line;
    while (std::getline(std::cin, line)) checker.line(line);
    checker.finish_file();
    return checker.faults() ? 1 : 0;
}
