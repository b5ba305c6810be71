# The example guestbook served by a private lighttpd, fetched with curl, as
# the README's first command runs it.
add_test(NAME example/guestbook
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/example/check.sh $<TARGET_FILE:vorn>)
set_tests_properties(example/guestbook PROPERTIES TIMEOUT 120)
