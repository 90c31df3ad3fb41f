#!/bin/bash
# receiver.sh DOCUMENT LOG  Its standard input and output are the connection; it prints on standard
# error.
text=$(dd bs=4096 count=1 status=none | tail -c +7)
exec <&- >&2

printf -v now '%(%s)T' -1
printf -v document '[{"alert_type":"display_alert", "show_turnout_timer":"1", "alert_time":"%s", '\
'"turnout_end":"0", "turnout_zero":"0", "turnout_reverse":"0", "alert_expiration":"%s", '\
'"alert_area":"%s", "map_url":"", "units":[]}]' "$now" $((now + 120)) "$text"
printf 'Writing JSON: %s\n' "$document"
printf '%s' "$document" >"$1"
printf '%(%y-%m-%d %T)T: %s\n' "$now" "$document" >>"$2"
[ -e /dev/shm/web_watchdog ]
