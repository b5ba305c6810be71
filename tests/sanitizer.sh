# Sourced by the suites that start the interpreter in an environment of
# their own. A sanitizer build reports on stderr, where those suites' own
# checks do not look: these keep the test run's sanitizer settings for the
# interpreter and tell whether a captured stderr holds a report.

# The sanitizer settings of the test run as NAME=VALUE words, for env -i.
sanitizer_settings=()
for name in ASAN_OPTIONS UBSAN_OPTIONS LSAN_OPTIONS; do
  if [ -n "${!name:-}" ]; then sanitizer_settings+=("$name=${!name}"); fi
done

# Status 1, with the files printed, when one of them holds a report.
sanitizer_clean() {
  if grep -Eq 'runtime error:|ERROR: (Address|Leak)Sanitizer' "$@"; then
    echo "--- sanitizer report"
    cat "$@"
    return 1
  fi
}
