#!/bin/sh
# The station page reports that it is polling and drawing. The header keeps other pages from doing
# so, and the host name keeps out copies of the page that are not on the television.
if [ "$REQUEST_METHOD" = POST ] && [ "$HTTP_X_STATION_PAGE" = alive ] && [ "$HTTP_HOST" = 127.0.0.1 ]
then
    touch /dev/shm/web_watchdog
    printf 'Status: 204 No Content\r\n\r\n'
else
    printf 'Status: 403 Forbidden\r\nContent-Type: text/plain\r\n\r\n'
fi
