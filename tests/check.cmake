# The example site's pages and their includes pass the page check clean:
# a finding fails the test and shows as FILE:LINE lines in its output.
file(GLOB VORN_EXAMPLE_PAGES CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/examples/site/*.html
     ${PROJECT_SOURCE_DIR}/examples/site/v.error)
add_test(NAME check/example_site COMMAND vorn --check ${VORN_EXAMPLE_PAGES})

# Every page case's page goes through the check too: findings are expected
# (many cases hold faulty pages on purpose), a crash or unreadable page not.
add_test(NAME check/page_cases
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/check/all_pages.py
                 $<TARGET_FILE:vorn> ${CMAKE_CURRENT_SOURCE_DIR}/pages)
