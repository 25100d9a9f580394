# Starts and stops Debian's clickhouse-server, each in a folder of its own, on loopback ports that are
# free, as a user without rights. Also zookeeper, and clusters of both. To be sourced; the folders are
# the caller's, and so is stopping what it has started.

# engine_is_there: whether it is installed.
engine_is_there() {
    [ -x /usr/sbin/clickhouse-server ] || [ -x /usr/bin/clickhouse-server ]
}

# engine_free_ports NUMBER: ports that nothing listens on, and that the system gives to no connection
# before the servers listen there.
engine_free_ports() {
    python3 - "$1" <<'EOF'
import random, socket, sys
first = int(open("/proc/sys/net/ipv4/ip_local_port_range").read().split()[0])
free = []
for port in random.sample(range(max(1024, first - 16384), first), 1000):
    with socket.socket() as one:
        try:
            one.bind(("127.0.0.1", port))
            free.append(port)
        except OSError:
            continue
    if len(free) == int(sys.argv[1]):
        break
print(*free)
EOF
}

# engine_run FOLDER COMMAND...: in the folder, in the background, as a user without rights; its id is in
# FOLDER/pid.
engine_run() {
    local folder=$1
    shift
    if [ "$(id -u)" -eq 0 ]; then
        chown -R nobody "$folder"
        set -- setpriv --reuid=nobody --regid=nogroup --clear-groups "$@"
    fi
    (cd "$folder" && exec "$@" >>out 2>>err </dev/null) &
    echo $! >"$folder/pid"
}

# engine_configure FOLDER HTTP_PORT TCP_PORT [MORE_OF_THE_CONFIGURATION]
engine_configure() {
    mkdir -p "$1"
    cat >"$1/config.xml" <<EOF
<yandex>
  <logger><level>error</level><console>1</console></logger>
  <listen_host>127.0.0.1</listen_host>
  <http_port>$2</http_port>
  <tcp_port>$3</tcp_port>
  <path>./</path>
  <mark_cache_size>67108864</mark_cache_size>
  <keep_alive_timeout>1</keep_alive_timeout>
  <users_config>users.xml</users_config>
  ${4:-}
</yandex>
EOF
    cat >"$1/users.xml" <<EOF
<yandex>
  <profiles><default/></profiles><quotas><default/></quotas>
  <users><default><password/>
    <networks><ip>127.0.0.1</ip></networks>
    <profile>default</profile><quota>default</quota>
  </default></users>
</yandex>
EOF
    echo "$2" >"$1/http"
}

# engine_start FOLDER: returns when it answers.
engine_start() {
    local server=/usr/sbin/clickhouse-server tries=0
    [ -x "$server" ] || server=/usr/bin/clickhouse-server
    engine_run "$1" "$server" --config-file=config.xml
    until curl -s --max-time 2 "http://127.0.0.1:$(cat "$1/http")/ping" >/dev/null; do
        tries=$((tries + 1))
        if [ $tries -gt 600 ] || ! kill -0 "$(cat "$1/pid")" 2>/dev/null; then
            echo "clickhouse-server does not start: $(tail -n 5 "$1/err")" >&2
            return 1
        fi
        sleep 0.05
    done
}

# engine_kill FOLDER: at once, as when the machine stops.
engine_kill() {
    local id
    id=$(cat "$1/pid" 2>/dev/null) || return 0
    kill -9 "$id" 2>/dev/null || true
    wait "$id" 2>/dev/null || true
    rm -f "$1/pid"
}

# engine_ask FOLDER STATEMENT
engine_ask() {
    curl -sS --max-time 60 "http://127.0.0.1:$(cat "$1/http")/" --data-binary "$2"
}

# zookeeper_answers PORT
zookeeper_answers() {
    (exec 3<>"/dev/tcp/127.0.0.1/$1" && printf srvr >&3 && timeout 2 grep -q '^Mode: ' <&3) 2>/dev/null
}

# zookeeper_start FOLDER PORT: returns when it answers.
zookeeper_start() {
    local tries=0
    mkdir -p "$1"
    cat >"$1/zoo.cfg" <<EOF
tickTime=2000
dataDir=$1
clientPort=$2
clientPortAddress=127.0.0.1
admin.enableServer=false
EOF
    engine_run "$1" java -Xmx128m -XX:+UseSerialGC -cp /usr/share/java/zookeeper.jar \
        org.apache.zookeeper.server.quorum.QuorumPeerMain zoo.cfg
    # It takes connections before it answers them. A server whose first connection ends without an answer
    # crashes later, at the first statement for the whole cluster.
    until zookeeper_answers "$2"; do
        tries=$((tries + 1))
        [ $tries -le 600 ] || { echo "zookeeper does not start: $(tail -n 5 "$1/err")" >&2; return 1; }
        sleep 0.05
    done
}

# cluster_is_there: whether what it needs is installed.
cluster_is_there() {
    engine_is_there && command -v java >/dev/null && [ -e /usr/share/java/zookeeper.jar ]
}

# cluster_start FOLDER: two shards with two replicas each, FOLDER/1a, 1b, 2a and 2b, and FOLDER/zookeeper;
# the cluster's name is "two".
cluster_start() {
    local folder=$1 ports shard replica number=1 hosts=
    read -r -a ports <<<"$(engine_free_ports 13)"
    zookeeper_start "$folder/zookeeper" "${ports[0]}"
    for shard in 1 2; do
        hosts+="<shard><internal_replication>true</internal_replication>"
        for replica in a b; do
            hosts+="<replica><host>127.0.0.1</host><port>${ports[number + 1]}</port></replica>"
            number=$((number + 3))
        done
        hosts+="</shard>"
    done
    number=1
    for shard in 1 2; do
        for replica in a b; do
            engine_configure "$folder/$shard$replica" "${ports[number]}" "${ports[number + 1]}" "
  <interserver_http_port>${ports[number + 2]}</interserver_http_port>
  <interserver_http_host>127.0.0.1</interserver_http_host>
  <zookeeper><node><host>127.0.0.1</host><port>${ports[0]}</port></node></zookeeper>
  <macros><shard>$shard</shard><replica>$replica</replica></macros>
  <distributed_ddl><path>/clickhouse/task_queue/ddl</path></distributed_ddl>
  <remote_servers><two>$hosts</two></remote_servers>"
            engine_start "$folder/$shard$replica"
            number=$((number + 3))
        done
    done
}

# cluster_level FOLDER STATEMENT ANSWER: waits until all servers give this answer; a replica may be
# behind.
cluster_level() {
    local server tries=0
    for server in 1a 1b 2a 2b; do
        until [ "$(engine_ask "$1/$server" "$2")" = "$3" ]; do
            tries=$((tries + 1))
            [ $tries -le 600 ] || { echo "$server is still behind after a minute" >&2; return 1; }
            sleep 0.1
        done
    done
}

# cluster_stop FOLDER
cluster_stop() {
    local part
    for part in "$1"/1a "$1"/1b "$1"/2a "$1"/2b "$1"/zookeeper; do
        [ ! -e "$part/pid" ] || engine_kill "$part"
    done
}
