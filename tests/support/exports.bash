# What a build of the library is expected to export. Sourced, not run.

# has_door <build directory> <KOVA_CLASSIC or KOVA_LIVE>: whether it was built with that interface
has_door() {
    grep -qxE "$2:BOOL=(ON|1|TRUE|YES)" "$1/CMakeCache.txt"
}

# exported_names <build directory>: the names, sorted
exported_names() {
    local lists=()
    has_door "$1" KOVA_CLASSIC && lists+=("${KOVA_SOURCE_DIR:?}/cmake/exports.txt")
    has_door "$1" KOVA_LIVE && lists+=("${KOVA_SOURCE_DIR:?}/cmake/exports_live.txt")
    LC_ALL=C sort "${lists[@]}"
}

# library_name <build directory>: as the linker takes it
library_name() {
    if has_door "$1" KOVA_CLASSIC; then
        echo kovartspserver
    else
        echo kovalive
    fi
}
