#!/bin/sh
# What the status page shows besides the alert document, as one JSON object of strings; those that
# are not known are empty. The header and the host name keep others out, as in alive.cgi.
LC_ALL=C
PATH=/usr/sbin:/usr/bin:/sbin:/bin
export LC_ALL PATH

# Standard input as the inside of a JSON string.
escaped() {
	head -c 300 | tr -d '\n' | tr -c ' -~' '?' | sed 's/[\\"]/\\&/g'
}

# member NAME COMMAND..., which prints the value
member() {
	name=$1
	shift
	printf '%s"%s": "%s"' "$separator" "$name" "$("$@" 2>/dev/null | escaped)"
	separator=', '
}

# Seconds since 1970. An image may lack the first of the two.
changed() {
	stat -c %Y "$1" || date -r "$1" +%s
}

# The kernel's table of addresses: other ways to them are closed to a confined web server.
addresses() {
	awk '/[|]--/ { address = $2 }
		/32 host LOCAL/ && address !~ /^127[.]/ && !seen[address]++ { print separator address; separator = ", " }
	' /proc/self/net/fib_trie
}

# In seconds. The file with the system's uptime may be hidden, but this program has just started.
uptime() {
	read -r line </proc/self/stat
	# shellcheck disable=SC2086 # its fields
	set -- ${line##*) }
	echo "${20%??}" # hundredths of a second
}

service_version() {
	cat /usr/local/share/hdtv/version /usr/share/hdtv/version | head -n 1
}

zone() {
	cat /etc/timezone || cat /etc/TZ || readlink /etc/localtime | sed 's/.*zoneinfo.//'
}

if [ "$REQUEST_METHOD $HTTP_X_STATION_PAGE $HTTP_HOST" != "GET status 127.0.0.1" ]; then
	printf 'Status: 403 Forbidden\r\nContent-Type: text/plain\r\n\r\n'
	exit
fi
printf 'Content-Type: application/json\r\n\r\n{'
separator=
member addresses addresses
member hardware_address cat /sys/class/net/eth0/address
member gateway cat /dev/shm/current_gateway
member gateway_changed changed /dev/shm/current_gateway
member document_changed changed /dev/shm/alerts.json
member alive_changed changed /dev/shm/web_watchdog
member zone zone
member uptime uptime
member service_version service_version
printf '}\n'
