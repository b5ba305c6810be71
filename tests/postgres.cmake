# The database page cases once more against a real PostgreSQL 15 server with
# orafce: a fixture starts a private server, the cases that do not depend on
# the engine's own messages or files run against it, then it is stopped.
# Without the server binaries the start fails, and with it every case here.

set(VORN_PG_ROOT ${CMAKE_CURRENT_BINARY_DIR}/postgres)
# socket paths are short: one directory per build tree under /tmp
string(MD5 VORN_PG_HASH ${CMAKE_CURRENT_BINARY_DIR})
string(SUBSTRING ${VORN_PG_HASH} 0 10 VORN_PG_HASH)
set(VORN_PG_SOCKET /tmp/vorn-pg-${VORN_PG_HASH})
set(VORN_PG_PORT 5432)
set(VORN_PG_DATABASE Vorn)

# Cases whose expected output holds SQLite messages or file names.
set(VORN_PG_SQLITE_ONLY base_names base_default base_unusable error_fatal error_page error_trapped)

file(GLOB VORN_PG_SHARED_CASES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/pages/sql/*.case)
file(GLOB VORN_PG_OWN_CASES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/postgres/cases/*.case)

set(VORN_PG_CASES)
set(VORN_PG_SCHEMAS)
foreach(case ${VORN_PG_SHARED_CASES} ${VORN_PG_OWN_CASES})
  get_filename_component(name ${case} NAME_WE)
  if(case IN_LIST VORN_PG_SHARED_CASES)
    if(name IN_LIST VORN_PG_SQLITE_ONLY)
      continue()
    endif()
    set(test_name postgres/sql/${name})
  else()
    set(test_name postgres/own/${name})
  endif()
  string(MAKE_C_IDENTIFIER "case_${name}" schema)
  string(TOLOWER ${schema} schema)
  list(APPEND VORN_PG_SCHEMAS ${schema})
  add_test(NAME ${test_name}
           COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/pages/run_case.py
                   $<TARGET_FILE:vorn> ${case})
  set_tests_properties(${test_name} PROPERTIES
    LABELS postgres FIXTURES_REQUIRED vorn_postgres
    ENVIRONMENT "VORN_DB=postgres;PGHOST=${VORN_PG_SOCKET};PGPORT=${VORN_PG_PORT};PGUSER=postgres;PGDATABASE=${VORN_PG_DATABASE};PGOPTIONS=-c search_path=${schema},public,oracle")
endforeach()

add_test(NAME postgres/start
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/postgres/start.sh ${VORN_PG_ROOT} ${VORN_PG_SOCKET}
                 ${VORN_PG_PORT} ${VORN_PG_DATABASE} ${VORN_PG_SCHEMAS})
set_tests_properties(postgres/start PROPERTIES LABELS postgres FIXTURES_SETUP vorn_postgres TIMEOUT 180)

add_test(NAME postgres/stop
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/postgres/stop.sh ${VORN_PG_ROOT})
set_tests_properties(postgres/stop PROPERTIES LABELS postgres FIXTURES_CLEANUP vorn_postgres)

# No server: the client library itself is missing, so the helper cannot start.
add_test(NAME postgres/no_libpq
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/postgres/no_libpq.sh $<TARGET_FILE:vorn>)
set_tests_properties(postgres/no_libpq PROPERTIES LABELS postgres SKIP_RETURN_CODE 77)

# The helper process around a page, against the server: what it holds, a
# helper killed mid-page, a missing one and one that does not start.
add_test(NAME postgres/helper
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/postgres/helper.sh $<TARGET_FILE:vorn>)
set_tests_properties(postgres/helper PROPERTIES
  LABELS postgres FIXTURES_REQUIRED vorn_postgres
  ENVIRONMENT "VORN_DB=postgres;PGHOST=${VORN_PG_SOCKET};PGPORT=${VORN_PG_PORT};PGUSER=postgres;PGDATABASE=${VORN_PG_DATABASE}")
