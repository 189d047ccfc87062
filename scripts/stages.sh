# shellcheck shell=bash
# Functions that build, run and report the stages of a test. The test scripts source this from the root of the tree.

logs=build/logs
# shellcheck disable=SC2034 # Used by the scripts that source this.
jobs=$(nproc)
harnesses='power cuts|recorder power cuts|recorder faults|setting aside|killed|many processes|storage faults|memory faults|full disk|random operations|damaged files|damaged set|threads|soak'
# All presets but clang use g++, whatever the caller's environment says.
export CXX=g++
# Keep the tests' files in memory: durability is tested on a disk model and needs no real synchronisation.
[[ ! -w /dev/shm ]] || export TEST_TMPDIR=/dev/shm
unset CXXFLAGS CPPFLAGS LDFLAGS

# Configures a preset and builds it, or only the target given as second argument.
build()
{
    # Set each option, as an earlier configuration by hand may have left another value in the folder.
    # The sanitizers need no examples and benchmarks, as no test runs those.
    local programs=ON
    [[ $1 != *sanitize ]] || programs=OFF
    cmake --preset "$1" -DFIRAIM_BUILD_TESTS=ON -DFIRAIM_BUILD_EXAMPLES=$programs \
        -DFIRAIM_BUILD_BENCHMARKS=$programs -DFIRAIM_BUILD_TOOL=ON -DBUILD_TESTING=ON &&
        cmake --build --preset "$1" --parallel "$jobs" ${2:+--target "$2"}
}

# Runs the tests of a preset. Other options of ctest may follow.
run_tests()
{
    # One more than there are processors: many tests spend their time waiting for a lock or for another process.
    ctest --preset "$1" --parallel "$((jobs + 1))" "${@:2}"
}

export -f build run_tests
export jobs

# Runs the stage NAME. When the script was called with the name of a stage, all others are skipped.
only=${1-}
has_run=false
stage()
{
    local name=$1
    shift
    [[ -z $only || $only == "$name" ]] || return 0
    has_run=true
    printf '%-24s' "$name"
    local start=$SECONDS
    local log="$logs/${name// /-}.log"
    scripts/quietly "$log" "$@" || {
        local status=$?
        echo "FAILED: $name"
        exit "$status"
    }
    echo "ok ($((SECONDS - start)) s)"
    # A stage may have left something out.
    sed -n 's/^Note: /  /p' "$log"
}

# Ends a script that was called with the name of a stage; fails when there is no such stage.
end_of_one_stage()
{
    [[ -n $only ]] || return 0
    $has_run || {
        echo "no stage has the name '$only'" >&2
        exit 2
    }
    exit 0
}

# Prints the counts of the reliability harnesses, as ctest does not print the output of tests that pass.
counts()
{
    echo
    echo "tried ($1):"
    grep -hE "^($harnesses)" "build/$1/Testing/Temporary/LastTest.log" | sort
}

summary()
{
    echo
    echo "$1:"
    sed -n '/% tests passed/,$p' "$logs/test-$1.log"
}
