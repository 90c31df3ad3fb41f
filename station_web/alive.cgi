#!/bin/sh
# The station page says that it is polling and drawing. The header keeps other pages from saying so,
# and the host name a copy of the page that is not the television's.
if [ "$REQUEST_METHOD" = POST ] && [ "$HTTP_X_STATION_PAGE" = alive ] && [ "$HTTP_HOST" = 127.0.0.1 ]
then
    touch /dev/shm/web_watchdog
    printf 'Status: 204 No Content\r\n\r\n'
else
    printf 'Status: 403 Forbidden\r\nContent-Type: text/plain\r\n\r\n'
fi
