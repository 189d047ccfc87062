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

stage()
{
    local name=$1
    shift
    printf '%-24s' "$name"
    local start=$SECONDS
    scripts/quietly "$logs/${name// /-}.log" "$@" || {
        local status=$?
        echo "FAILED: $name"
        exit "$status"
    }
    echo "ok ($((SECONDS - start)) s)"
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
