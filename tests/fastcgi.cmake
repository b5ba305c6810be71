# Vorn as a FastCGI server (label "fastcgi"): the protocol and the server's
# operations against `vorn --fastcgi` alone, and the answers through nginx,
# lighttpd and Apache httpd compared with lighttpd running Vorn as CGI.
add_test(NAME fastcgi/protocol
         COMMAND ${Python3_EXECUTABLE} ${CMAKE_CURRENT_SOURCE_DIR}/fastcgi/protocol.py
                 $<TARGET_FILE:vorn>)
add_test(NAME fastcgi/servers
         COMMAND bash ${CMAKE_CURRENT_SOURCE_DIR}/fastcgi/servers.sh $<TARGET_FILE:vorn>)
set_tests_properties(fastcgi/protocol fastcgi/servers PROPERTIES LABELS fastcgi TIMEOUT 180)
