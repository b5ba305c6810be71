# The examples of the language reference (docs/language/*.md): each page
# example runs in a fresh site and home and its output is compared exactly.
file(GLOB VORN_LANGUAGE_DOCS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/docs/language/*.md)
add_test(NAME docs/language
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/docs/run_examples.py
                 $<TARGET_FILE:vorn> ${VORN_LANGUAGE_DOCS})
