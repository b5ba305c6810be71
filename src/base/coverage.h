// The coverage tree's counters are written by exit(). A process that ends
// otherwise (by _exit, by a signal it raises, or by exec) writes them
// first with V_coverage_dump, so that the report counts what it ran; in
// every other build the call is nothing.
#pragma once

#ifdef VORN_COVERAGE_COUNTERS
extern "C" void __gcov_dump(void);
inline void V_coverage_dump() {
    __gcov_dump();
}
#else
inline void V_coverage_dump() {}
#endif
