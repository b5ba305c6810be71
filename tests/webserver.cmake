# The interpreter as a CGI program under a private lighttpd on 127.0.0.1,
# driven by curl: forms, uploads, cookies and error pages over real HTTP.
add_test(NAME webserver/cgi
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/webserver/run.sh $<TARGET_FILE:vorn>)
set_tests_properties(webserver/cgi PROPERTIES TIMEOUT 120)
