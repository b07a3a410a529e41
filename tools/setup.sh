# Sourced by run, test and .ci/run: brings the packages that a step needs, and builds a preset.

# need PACKAGE...: installs what is missing; says so in one line.
need() {
    local missing=()
    local package
    for package in "$@"; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
            missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    if [ "$(id -u)" -ne 0 ]; then
        echo "These packages are missing, and installing them needs root:" >&2
        echo "    apt-get install ${missing[*]}" >&2
        exit 1
    fi
    echo "Installing ${missing[*]}"
    local log
    log=$(mktemp)
    if ! { apt-get update && DEBIAN_FRONTEND=noninteractive apt-get install -y \
        --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
        cat "$log" >&2
        echo "The packages could not be installed." >&2
        exit 1
    fi
    rm -f "$log"
}

# What every build of the project needs.
need_build_tools() { need ca-certificates cmake g++ ninja-build libicu-dev libspdlog-dev libsqlite3-dev tzdata; }

# build PRESET [TARGET...]: configures once, then builds what has changed.
build() {
    local preset=$1
    shift
    [ -f "build/$preset/build.ninja" ] ||
        cmake --preset "$preset" >"$(mkdir -p build && echo build/configure.log)" || {
        cat build/configure.log >&2
        exit 1
    }
    cmake --build --preset "$preset" ${1:+--target "$@"}
}
