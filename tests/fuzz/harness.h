// Pieces the fuzz harnesses share: an input as the C string the modules
// read, a memory stream in place of standard input, and the hold on the
// divide-by-zero signal that lets an evaluation go on.
#pragma once
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

// The input up to its first NUL.
inline std::string input_text(const uint8_t *data, size_t size) {
    std::string s(reinterpret_cast<const char *>(data), size);
    return s.substr(0, s.find('\0'));
}

// Splits text at its first line feed into head and tail (tail empty without
// one).
inline void split_line(const std::string &text, std::string &head, std::string &tail) {
    size_t nl = text.find('\n');
    head = text.substr(0, nl);
    tail = nl == std::string::npos ? "" : text.substr(nl + 1);
}

// Sets environment variable name to value through slot, which the caller
// keeps: setenv would keep every value ever set, and on millions of inputs
// that grows without end. The old text goes only once the new one is in.
inline void put_env(std::vector<char> &slot, const char *name, const std::string &value) {
    std::string text = std::string(name) + "=" + value;
    std::vector<char> next(text.c_str(), text.c_str() + text.size() + 1);
    putenv(next.data());
    slot.swap(next);
}

// Integer division by zero raises SIGFPE on purpose, which would end the
// fuzzer. With the signal blocked the raise only leaves it pending and the
// evaluation goes on with a zero quotient; a real processor fault is still
// delivered (and UBSan reports the division first).
inline void hold_divide_fault() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGFPE);
    sigprocmask(SIG_BLOCK, &set, nullptr);
}

// Runs fn with standard input reading the size bytes at data.
template <class F> void with_stdin(const uint8_t *data, size_t size, F fn) {
    static char none[1];
    FILE *saved = stdin;
    FILE *in =
        fmemopen(size ? const_cast<uint8_t *>(data) : reinterpret_cast<uint8_t *>(none), size, "r");
    if (!in) return;
    stdin = in;
    fn();
    stdin = saved;
    fclose(in);
}
