# The #include graph of src/ keeps the layer order and has no loop but the
# dispatcher's (scripts/check-includes.py lists both); the checker's own
# cases run on small trees they build.
add_test(NAME includes/layers
         COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/scripts/check-includes.py
                 ${PROJECT_SOURCE_DIR}/src)
add_test(NAME includes/checker
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/includes/check_includes_test.py)
