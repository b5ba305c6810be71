# Two web nodes behind an nginx balancer over one private PostgreSQL server:
# a bounded load test (ab, concurrency 8) after which every visit must be
# counted once. It runs alone, as it keeps both cores busy; a sanitizer
# build, several times slower to start, sends a quarter of the requests.
string(MD5 VORN_MN_HASH ${CMAKE_CURRENT_BINARY_DIR})
string(SUBSTRING ${VORN_MN_HASH} 0 10 VORN_MN_HASH)
if(VORN_SANITIZE)
  set(VORN_MN_REQUESTS 500)
else()
  set(VORN_MN_REQUESTS 2000)
endif()
add_test(NAME multinode/load
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/multinode/run.sh $<TARGET_FILE:vorn>
                 ${CMAKE_CURRENT_BINARY_DIR}/multinode /tmp/vorn-mn-${VORN_MN_HASH}
                 ${VORN_MN_REQUESTS})
set_tests_properties(multinode/load PROPERTIES TIMEOUT 240 RUN_SERIAL TRUE)
