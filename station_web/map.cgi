#!/bin/sh
# The station page asks whether a map's address may be shown as a page: map.cgi?ADDRESS, the address
# as a browser writes it, without a fragment. Answers 204 if it may: there is an answer 200 with
# content type text/html, and it may be framed. Otherwise 404, and why in a line of text. The header
# keeps other pages from asking, and the host name keeps out copies of the page that are not on the
# television.
LC_ALL=C
PATH=/usr/sbin:/usr/bin:/sbin:/bin
HOME=/nonexistent # wget's settings and cookies would be there
export LC_ALL PATH HOME

limit=5 # seconds for each of two attempts
proxy=http://10.87.33.1:3128

respond() {
	printf 'Status: %s\r\nContent-Type: text/plain\r\n\r\n%s\n' "$1" "$2"
	exit
}

refuse() {
	respond "404 Not Found" "$1"
}

# An address on this unit: nothing here is a map, and only a page of ours would be taken in. Browsers
# read any number as an IPv4 address, so that only the plain form is let through.
check_host() {
	rest=${1#*://}
	authority=${rest%%[/?#]*}
	host=${authority%%:*}
	host=$(printf %s "${host%.}" | tr '[:upper:]' '[:lower:]')
	case $authority in
	*[!A-Za-z0-9._:-]*) refuse "its host is not a plain name or IPv4 address" ;;
	esac
	case $host in
	'' | localhost | *.localhost | 127.* | 0.*) refuse "it is an address of this unit" ;;
	esac
	case ${host##*.} in
	[0-9]*) check_numbers "$host" ;;
	esac
}

check_numbers() {
	case $1 in
	*[!0-9.]* | *.*.*.*.* | 0[0-9]* | *.0[0-9]*) ;;
	[0-9]*.[0-9]*.[0-9]*.[0-9]*) return ;;
	esac
	refuse "its host is not a plain name or IPv4 address"
}

# Where it uses a connection again, wget may take the end of a redirect for the next answer.
options() {
	case $(wget --help 2>&1) in
	*--no-http-keep-alive*) echo --no-http-keep-alive ;;
	esac
}

# What wget says while it gets the address; there is not always a "timeout" to end it. The device is
# always full, so that wget gives up as soon as the header is over and the first bytes arrive.
headers() {
	# shellcheck disable=SC2046 # no option or one
	wget $(options) -S -O /dev/full -U "${HTTP_USER_AGENT:-station}" -- "$address" 2>&1 &
	fetcher=$!
	(sleep "$limit" && kill "$fetcher") >/dev/null 2>&1 &
	timer=$!
	wait "$fetcher" 2>/dev/null
	kill "$timer" 2>/dev/null
}

# The lines of the header that count: those of the last answer, and where others led.
fetch() {
	headers | head -c 16384 | tr -d '\r' | awk '
		/^  HTTP\// { status = $2; type = framing = "" }
		{ name = tolower($1) }
		/^  / && name == "content-type:" { type = tolower($2); sub(";.*", "", type) }
		/^  / && name == "location:" { print "location", $2 }
		/^  / && name == "x-frame-options:" && tolower($2) ~ /deny|sameorigin/ { framing = "refused" }
		/^  / && name == "content-security-policy:" && tolower($0) ~ /frame-ancestors/ &&
			tolower($0) !~ /frame-ancestors +[*] *(;|$)/ { framing = "refused" }
		END { if (status) print "answer", status, (type ? type : "none"), framing }'
}

judge() {
	while read -r word value type framing; do
		case $word,$value in
		location,http://* | location,https://*) check_host "$value" ;;
		location,//*) check_host "http:$value" ;;
		location,*) ;;
		answer,200)
			[ "$type" = text/html ] || refuse "its content type is $type"
			[ -z "$framing" ] || refuse "it forbids being framed"
			printf 'Status: 204 No Content\r\n\r\n'
			exit
			;;
		answer,*) refuse "it answers $value" ;;
		esac
	done
	refuse "it does not answer"
}

if [ "$REQUEST_METHOD $HTTP_X_STATION_PAGE $HTTP_HOST" != "GET map 127.0.0.1" ]; then
	respond "403 Forbidden" "only the station page on the television may ask"
fi
address=$QUERY_STRING
case $address in
*[!!-~]* | *\\*) refuse "it has characters that no address has" ;;
http://?* | https://?*) check_host "$address" ;;
*) refuse "it is not an http or https address" ;;
esac
found=$(fetch)
# Where the browser uses the station's proxy, the unit may reach the address in no other way.
case $found in
*answer*) ;;
*) found=$(http_proxy=$proxy https_proxy=$proxy && export http_proxy https_proxy && fetch) ;;
esac
judge <<END
$found
END
