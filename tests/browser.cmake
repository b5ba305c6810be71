# Headless Chromium through the example guestbook under lighttpd, Apache
# httpd and nginx + fcgiwrap; playwright-core and failure screenshots go to
# the build folder (browser/).
add_test(NAME browser/guestbook
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/browser/run.sh $<TARGET_FILE:vorn>
                 ${CMAKE_CURRENT_BINARY_DIR}/browser)
set_tests_properties(browser/guestbook PROPERTIES TIMEOUT 300)
