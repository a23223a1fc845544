#!/usr/bin/env bash
# Installs what the machine lacks and builds the target libraries once, into build/deps.
set -euo pipefail
cd "$(dirname "$0")/.."

usage() {
    cat <<'HELP'
usage: scripts/bootstrap.sh [--lint | --help]

Prepares a Debian machine for building and testing:
  1. installs the host packages that are missing (cross compiler, Wine, virtual display, browser, ffmpeg);
  2. fetches the distribution's source packages of the libraries the project calls and builds them
     for 64-bit Windows into build/deps/x86_64-w64-mingw32;
  3. makes the template Wine prefix that test runs are copied from, in build/deps/wineprefix.

With --lint only the host packages that scripts/lint.sh calls are installed.
What is there is skipped: a second run does nothing and needs no network.
HELP
}
case "${1:-}" in
    "" | --lint) ;;
    -h | --help) usage; exit 0 ;;
    *) usage >&2; exit 2 ;;
esac

readonly DEPS="$PWD/build/deps"
readonly TARGET=x86_64-w64-mingw32
readonly PREFIX="$DEPS/$TARGET"
readonly TOOLCHAIN="$PWD/cmake/mingw-w64-x86_64.cmake"
# What the libraries say of themselves names no folder of this machine.
readonly NO_OWN_PATHS="-ffile-prefix-map=$DEPS/src/= -ffile-prefix-map=$DEPS/obj/="
readonly HOST_PACKAGES=(
    ca-certificates chromium cmake dpkg-dev ffmpeg g++-mingw-w64-x86-64-posix make nasm ninja-build
    procps pulseaudio pulseaudio-utils python3 util-linux wine64 x11-utils xauth xvfb
)
readonly LINT_PACKAGES=(clang-16 clang-format-16 clang-tidy-16 doxygen eslint flake8 shellcheck)

say() { printf '== %s\n' "$*"; }

as_root() {
    if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# install PACKAGE...: installs those that are missing.
install() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q '^install ok installed$' || missing+=("$package")
    done
    [ "${#missing[@]}" -eq 0 ] && return
    say "installing ${missing[*]}"
    as_root apt-get update -qq
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# Source entries are a copy of the machine's own list entries in a private apt state, so that the
# machine's configuration stays as it is.
apt_for_sources() {
    local state="$DEPS/apt"
    if [ ! -d "$state" ]; then
        mkdir -p "$state.new"/{parts,lists/partial,cache/archives/partial}
        local list
        for list in /etc/apt/sources.list.d/*.sources; do
            [ -f "$list" ] && sed 's/^Types:.*/Types: deb-src/' "$list" >"$state.new/parts/$(basename "$list")"
        done
        for list in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
            [ -f "$list" ] && sed -n 's/^deb /deb-src /p' "$list" >"$state.new/parts/$(basename "$list" .list).list"
        done
        mv "$state.new" "$state"
    fi
    local options=(-o Dir::Etc::SourceList=/dev/null -o Dir::Etc::SourceParts="$state/parts"
        -o Dir::State::Lists="$state/lists" -o Dir::Cache="$state/cache" -o APT::Sandbox::User=root)
    [ -f "$state/updated" ] || { apt-get "${options[@]}" update -qq && touch "$state/updated"; }
    apt-get "${options[@]}" "$@"
}

# fetch NAME VERSION: leaves the source tree of a Debian source package in build/deps/src/NAME-VERSION.
fetch() {
    local name="$1" version="$2" tree="$DEPS/src/$1-$2"
    [ -d "$tree" ] && return
    say "fetching the source of $name"
    mkdir -p "$DEPS/src/$name.new"
    (cd "$DEPS/src/$name.new" && apt_for_sources source -qq "$name" >/dev/null 2>&1) || {
        echo "cannot fetch the source package $name" >&2
        exit 1
    }
    local found
    found=$(find "$DEPS/src/$name.new" -mindepth 1 -maxdepth 1 -type d | head -n 1)
    case "$(basename "$found")" in
        *-"$version"*) mv "$found" "$tree" ;;
        *) echo "the distribution has $(basename "$found"), this project was built with $name $version" >&2; exit 1 ;;
    esac
    rm -rf "$DEPS/src/$name.new"
}

# build NAME VERSION [ARGUMENT...]: builds and installs one library for the target, once for each version and set of
# arguments: with the function build_NAME if there is one, else with CMake. A VARIANT goes to a prefix of its own.
build() {
    local name="$1" version="$2" prefix="$PREFIX${VARIANT:+-$VARIANT}"
    shift 2
    local stamp
    stamp="$DEPS/stamps/$name-$version-$(printf '%s\n' "$@" | cksum | cut -d ' ' -f 1)"
    [ -f "$stamp" ] && return
    fetch "$name" "$version"
    say "building $name $version for the target"
    local tree="$DEPS/obj/$name-$version" log="$DEPS/obj/$name-$version.log" builder=build_with_cmake
    ! declare -F "build_$name" >/dev/null || builder="build_$name"
    rm -rf "$tree"
    mkdir -p "$tree"
    if ! "$builder" "$tree" "$DEPS/src/$name-$version" "$@" >"$log" 2>&1; then
        tail -n 40 "$log" >&2
        echo "building $name failed; the whole log is $log" >&2
        exit 1
    fi
    rm -rf "$tree"
    mkdir -p "$DEPS/stamps"
    touch "$stamp"
}

# Builders are called as BUILDER TREE SOURCE [ARGUMENT...], install into $prefix and end with the first step that fails.

configure_with_cmake() {
    local tree="$1" source="$2"
    shift 2
    cmake -S "$source" -B "$tree" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN" \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_PREFIX_PATH="$PREFIX" \
        -DCMAKE_POLICY_DEFAULT_CMP0077=NEW -DCMAKE_C_FLAGS="$NO_OWN_PATHS" -DCMAKE_CXX_FLAGS="$NO_OWN_PATHS" "$@"
}

build_with_cmake() {
    configure_with_cmake "$@" && cmake --build "$1" && cmake --install "$1"
}

# Its own install step leaves out the muxer that this project calls.
build_libwebm() {
    local tree="$1" source="$2" folder
    build_with_cmake "$@" && cp "$tree/libwebm.a" "$prefix/lib/" || return
    for folder in common mkvmuxer; do
        mkdir -p "$prefix/include/libwebm/$folder" && cp "$source/$folder/"*.h "$prefix/include/libwebm/$folder/" || return
    done
}

# Its own install step knows only programs whose names do not end in .exe.
build_libyuv() {
    local tree="$1" source="$2"
    configure_with_cmake "$@" && cmake --build "$tree" --target yuv && cp "$tree/libyuv.a" "$prefix/lib/" &&
        cp -r "$source/include/." "$prefix/include/"
}

# A DLL that the worker loads by its path: it imports system DLLs only, so that any other build of it can take its
# place. Its makefile builds where the source is.
build_openh264() {
    local tree="$1" source="$2" make
    make=(make -C "$tree" -j "$(nproc)" OS=mingw_nt ARCH=x86_64 LIBPREFIX= PREFIX="$prefix" CC="$TARGET-gcc-posix"
        CXX="$TARGET-g++-posix" AR="$TARGET-ar" SHLDFLAGS="-static -s openh264.def")
    cp -r "$source/." "$tree" && "${make[@]}" openh264.dll && "${make[@]}" install-headers &&
        mkdir -p "$prefix/bin" && cp "$tree/openh264.dll" "$prefix/bin/"
}

build_libvpx() {
    local tree="$1" source="$2"
    shift 2
    (cd "$tree" && CROSS="$TARGET-" CC="$TARGET-gcc-posix" CXX="$TARGET-g++-posix" LD="$TARGET-g++-posix" AS=nasm \
        "$source/configure" --target=x86_64-win64-gcc --prefix="$prefix" "$@") &&
        make -C "$tree" -j "$(nproc)" && make -C "$tree" install
}

# Of the whole library the one digest that is called, with the variants for the processors' own instructions. Its build
# is a program of its own, too.
build_botan() {
    local tree="$1" source="$2"
    shift 2
    (cd "$source" && python3 configure.py --os=mingw --cpu=x86_64 --cc=gcc --cc-bin="$TARGET-g++-posix" \
        --ar-command="$TARGET-ar" --extra-cxxflags="$NO_OWN_PATHS" --with-build-dir="$tree" --build-targets=static \
        --without-documentation --link-method=copy "$@") &&
        make -C "$source" -f "$tree/Makefile" -j "$(nproc)" libs && mkdir -p "$prefix/lib" "$prefix/include/botan-2" &&
        cp "$tree/libbotan-2.a" "$prefix/lib/" && cp -r "$tree/build/include/botan" "$prefix/include/botan-2/"
}

build_with_configure() {
    local tree="$1" source="$2"
    shift 2
    (cd "$tree" && "$source/configure" --host="$TARGET" --prefix="$prefix" --disable-shared --enable-static \
        CC="$TARGET-gcc-posix" CFLAGS="-O2 $NO_OWN_PATHS" "$@") &&
        make -C "$tree" -j "$(nproc)" && make -C "$tree" install
}

build_opus() { build_with_configure "$@"; }
build_vo-aacenc() { build_with_configure "$@"; }

# Boost's headers come from the distribution's package for programs of its own: of what is called here, nothing is
# compiled, so they serve every target. They lie in a
# folder of the target's, because the cross compiler must not see the machine's own.
install_boost_headers() {
    local version=1.81
    local stamp="$DEPS/stamps/boost-headers-$version" work="$DEPS/obj/boost" package="libboost$version-dev"
    [ -f "$stamp" ] && return
    say "fetching the headers of Boost $version"
    rm -rf "$work" "$PREFIX/include/boost"
    mkdir -p "$work" "$PREFIX/include" "$DEPS/stamps"
    (
        cd "$work"
        options=(-qq -o APT::Sandbox::User=root)
        apt-get "${options[@]}" download "$package" 2>/dev/null ||
            { as_root apt-get update -qq && apt-get "${options[@]}" download "$package"; }
        dpkg-deb -x "$package"_*.deb .
    )
    cp "$work/usr/share/doc/$package/copyright" "$work/usr/include/boost/"
    mv "$work/usr/include/boost" "$PREFIX/include/boost"
    rm -rf "$work"
    touch "$stamp"
}

make_template_prefix() {
    local template="$DEPS/wineprefix"
    [ -f "$template/.ready" ] && return
    say "making the template Wine prefix"
    rm -rf "$template"
    local run=(env WINEPREFIX="$template" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" DISPLAY=)
    "${run[@]}" "$(scripts/wine-run.sh --wine)" wineboot -i >/dev/null 2>&1
    "${run[@]}" "$(scripts/wine-run.sh --wine)" winecfg -v win10 >/dev/null 2>&1
    "${run[@]}" "$(scripts/wine-run.sh --wineserver)" -w
    touch "$template/.ready"
}

if [ "${1:-}" = --lint ]; then
    install "${LINT_PACKAGES[@]}"
    exit
fi
install "${HOST_PACKAGES[@]}"
# Without its thread pool: the pool's threads outlive main, and the library then waits for them for ever.
readonly LOG4CPLUS_OPTIONS=(
    -DUNICODE=ON -DLOG4CPLUS_BUILD_TESTING=OFF -DWITH_UNIT_TESTS=OFF -DLOG4CPLUS_BUILD_LOGGINGSERVER=OFF
    -DLOG4CPLUS_ENABLE_DECORATED_LIBRARY_NAME=OFF -DLOG4CPLUS_ENABLE_THREAD_POOL=OFF
)
build log4cplus 2.0.8 -DBUILD_SHARED_LIBS=ON "${LOG4CPLUS_OPTIONS[@]}"
VARIANT=static build log4cplus 2.0.8 -DBUILD_SHARED_LIBS=OFF "${LOG4CPLUS_OPTIONS[@]}" # for the worker, which is one file
build tinyxml2 9.0.0+dfsg -DBUILD_SHARED_LIBS=OFF -Dtinyxml2_BUILD_TESTING=OFF -DBUILD_TESTING=OFF
build googletest 1.12.1 -DBUILD_SHARED_LIBS=OFF
build botan 2.19.3+dfsg --minimized-build --enable-modules=sha2_32,sha2_32_bmi2,sha2_32_x86
build libjpeg-turbo 2.1.5 -DENABLE_SHARED=OFF -DWITH_JAVA=OFF
build libwebm 1.0.0.29 -DBUILD_SHARED_LIBS=OFF -DENABLE_WEBMTS=OFF -DENABLE_WEBM_PARSER=OFF -DENABLE_SAMPLE_PROGRAMS=OFF -DENABLE_TESTS=OFF
build openh264 2.3.1
build libvpx 1.12.0 --disable-vp8 --disable-examples --disable-tools --disable-docs \
    --disable-unit-tests --disable-webm-io --disable-libyuv --disable-install-bins
build libyuv 0.0~git20230123.b2528b0 -DCMAKE_DISABLE_FIND_PACKAGE_JPEG=ON
build vo-aacenc 0.1.3
build opus 1.3.1 --disable-doc --disable-extra-programs
build cli11 2.1.2+ds -DCLI11_BUILD_TESTS=OFF -DCLI11_BUILD_EXAMPLES=OFF -DCLI11_BUILD_DOCS=OFF
build nlohmann-json3 3.11.2 -DJSON_BuildTests=OFF
install_boost_headers
make_template_prefix
say "the machine is ready"
