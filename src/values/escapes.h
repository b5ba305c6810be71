// Escapes of a value for the place a page writes it: HTML text and quoted
// attributes, and the inside of a double-quoted script or JSON string.
// Output is cut before the first entity or escape that would not fit whole,
// so a cut value never ends in half of one.
#pragma once
#include <string_view>

// Writes text into out (size bytes, always NUL-terminated when size > 0)
// with & < > " ' as &amp; &lt; &gt; &quot; &#39;; every other byte, those
// above 127 included, is copied. Returns the number of bytes written.
int V_escape_html(std::string_view text, char *out, int size);

// Writes text into out (size bytes, as above) as the inside of a
// double-quoted JSON string that may stand in a <script> block: backslash
// and double quote take a backslash; newline, return, tab, backspace and
// form feed their letter escapes; the other control bytes, < > & ' and the
// UTF-8 line and paragraph separators (U+2028, U+2029) a \u escape. Other
// bytes above 127 are copied: the page decides its encoding. Returns the
// number of bytes written.
int V_escape_js(std::string_view text, char *out, int size);
