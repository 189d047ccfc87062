# shellcheck shell=bash
# Sourced by the scripts that test, from the root of the tree: how they build, run and show the parts of a test.

logs=build/logs
# shellcheck disable=SC2034 # For the scripts that source this.
jobs=$(nproc)
harnesses='power cuts|recorder power cuts|recorder faults|setting aside|killed|many processes|storage faults|memory faults|full disk|random operations|damaged files|threads'
# The presets other than clang mean g++ whatever the caller's shell is set up for.
export CXX=g++
# Durability is tested on a model of a disk, and need not be paid for by every other test.
[[ ! -w /dev/shm ]] || export TEST_TMPDIR=/dev/shm
unset CXXFLAGS CPPFLAGS LDFLAGS

# Configures and builds a preset, or the target that is named behind it.
build()
{
    # Said again, as an earlier configuration by hand may have left something else in the folder.
    # No test runs the examples and benchmarks, so the sanitizers would find nothing in them.
    local programs=ON
    [[ $1 != *sanitize ]] || programs=OFF
    cmake --preset "$1" -DFIRAIM_BUILD_TESTS=ON -DFIRAIM_BUILD_EXAMPLES=$programs \
        -DFIRAIM_BUILD_BENCHMARKS=$programs -DFIRAIM_BUILD_TOOL=ON -DBUILD_TESTING=ON &&
        cmake --build --preset "$1" --parallel "$jobs" ${2:+--target "$2"}
}

# Runs the tests of a preset.
run_tests()
{
    ctest --preset "$1" --parallel "$jobs"
}

export -f build run_tests
export jobs

# Runs the stage NAME, or, when the script was called with the name of a stage, only that one.
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
    scripts/quietly "$logs/${name// /-}.log" "$@" || {
        local status=$?
        echo "FAILED: $name"
        exit "$status"
    }
    echo "ok ($((SECONDS - start)) s)"
}

# Ends a script that was called with the name of a stage.
end_of_one_stage()
{
    [[ -n $only ]] || return 0
    $has_run || {
        echo "no stage has the name '$only'" >&2
        exit 2
    }
    exit 0
}

# The reliability harnesses say what they tried; ctest keeps that to itself when they pass.
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
