#!/usr/bin/env bash
# Publishes the goodbye frames of an agent through valend's database, while this program runs. As producer.py, for
# machines that have redis-cli only.
#   REDIS_CLI='redis-cli -s /run/redis/redis-server.sock --user NAME' REDISCLI_AUTH=PASSWORD \
#      producer.sh HOST AGENT INTERFACE FRAME...
set -euo pipefail
[ $# -ge 4 ] || { sed -n '2,5s/^# *//p' "$0" >&2; exit 2; }
frames=valen:$1:frames:$2:$3 lease=valen:$1:lease:$2:$3 rejected=valen:$1:rejected:frames:$2:$3
shift 3
lease_s=10
read -ra redis <<<"${REDIS_CLI:-redis-cli}"

# redis-cli -e: an error of the server is an exit status.
ask() { timeout 2 "${redis[@]}" -e --no-auth-warning "$@"; }

# All at once, so that valend never sees a half. redis-cli reads "\x01" as a byte.
publish() {
   local frame number=0 fields=
   for frame in "$@"; do
      number=$((number + 1))
      fields+=$(printf ' %04d "%s"' "$number" "$(tr -cd '[:xdigit:]' <<<"$frame" | sed 's/../\\x&/g')")
   done
   printf '%s\n' multi "set $lease held ex $lease_s" "del $frames" \
      "hset $frames$fields owner \"producer.sh, process $$\" lease $lease" exec | ask
}
renew() { # prints what is wrong
   local held
   held=$(ask expire "$lease" "$lease_s" 2>&1) || { echo "cannot reach the database: $held"; return 1; }
   if [ "$held" = 0 ]; then # for the first time, or because the server has lost everything
      publish "$@" >/dev/null || return 1
   fi
   ask hget "$rejected" why
}

trap 'ask del "$frames" "$lease" >/dev/null; exit' TERM INT
said=none
while :; do
   problem=$(renew "$@" 2>&1) || true
   [ "$problem" = "$said" ] || echo "${problem:-the frames are published}" >&2
   said=$problem
   sleep $((lease_s / 5)) &
   wait $! # which a signal ends
done
