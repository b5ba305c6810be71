# The example guestbook site, run end to end on SQLite as the README's first
# command runs it.
add_test(NAME example/guestbook
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/example/check.sh $<TARGET_FILE:vorn>)
