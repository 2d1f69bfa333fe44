# shellcheck shell=bash
# Shell helpers shared by run.sh and the scripts under cmake/, tests/ and tools/.
# Sourced, not run.

say() { printf '==> %s\n' "$*"; }

# as_root COMMAND...: through sudo unless root already (CI runs as root, without sudo).
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        env DEBIAN_FRONTEND=noninteractive "$@"
    else
        sudo env DEBIAN_FRONTEND=noninteractive "$@"
    fi
}

# apt_install PACKAGE...: installs those not installed yet.
apt_install() {
    local pkg missing=()
    for pkg in "$@"; do
        dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" ||
            missing+=("$pkg")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    say "installing ${missing[*]}"
    as_root apt-get update -q
    as_root apt-get install -y -q --no-install-recommends "${missing[@]}"
}

# wait_for SECONDS WHAT COMMAND...: polls COMMAND every 50 ms until it succeeds;
# fails after SECONDS, naming WHAT. The limit only guards against a hang.
wait_for() {
    local limit=$1 what=$2 i
    shift 2
    for ((i = 0; i < limit * 20; i++)); do
        "$@" && return 0
        sleep 0.05
    done
    echo "gave up waiting for $what after ${limit} s" >&2
    return 1
}

# listening PORT: whether something accepts on 127.0.0.1:PORT.
listening() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

# free_port: a port on 127.0.0.1 that nobody listens on right now.
free_port() {
    local port=$((20000 + RANDOM % 30000))
    while listening "$port"; do port=$((20000 + RANDOM % 30000)); done
    echo "$port"
}
