// Where the small variables that every request touches are kept. Left in
// the zero-filled area they sit between the large tables of their files,
// each on a page of its own, and every first touch of such a page costs the
// process a page fault (two when the first touch is a read). Marked V_HOT
// they are kept together at the start of the data area, on the page that
// start-up writes anyway (the relocated library entries sit next to it).
// Only for plain variables that are not const: a const one in the same
// section would clash with the writable ones.
#pragma once

#if defined(__ELF__)
#define V_HOT __attribute__((section(".data.hot")))
#else
#define V_HOT
#endif

// For a buffer of some KB whose first bytes every request writes: in the
// data area of its own, which the start-up order of the static link
// (src/driver/start_up.order, smallest first) lays out behind the small
// variables every request touches, so that those bytes land on their last
// page. Among the hot variables it would push the ones behind it onto a
// page of their own.
#if defined(__ELF__)
#define V_HOT_BUFFER __attribute__((section(".data.hot_buffer")))
#else
#define V_HOT_BUFFER
#endif

// For a large zero-filled block aligned to a page. Its alignment would move
// the start of the zero-filled area to a page of its own, away from the
// page it shares with the end of the data area, which costs a page fault
// of its own: such a block goes to an area of its own after it. (Clang
// would store that area's zeros in the file: its builds go without.)
#if defined(__ELF__) && defined(__x86_64__) && !defined(__clang__)
#define V_PAGE_BLOCK __attribute__((section(".lbss.vorn")))
#else
#define V_PAGE_BLOCK
#endif
