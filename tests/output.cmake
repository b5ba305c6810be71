# Held page output reaches a reader in time: before a sleep or a read of
# standard input, and within the interval while a page writes on. Page
# cases compare the bytes only; this reads the pipe with timeouts.
add_test(NAME output/sent_in_time
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/output/sent_in_time.py
                 $<TARGET_FILE:vorn>)
set_tests_properties(output/sent_in_time PROPERTIES LABELS page)
