# Form-data bodies produced by a real HTTP client (curl) against a capture
# listener on 127.0.0.1, decoded by the interpreter as a CGI program.
add_test(NAME uploads/real_client
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/uploads/real_client.sh $<TARGET_FILE:vorn>)
