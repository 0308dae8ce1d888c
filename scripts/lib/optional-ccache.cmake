# Compiles through ccache where it is installed; a preset that named it outright would break elsewhere. Paths within the
# tree count as relative, and the language that a package build sets does not count: a copy of the tree, as the packages
# are built from, finds what was compiled for this one.
find_program(NM_CCACHE ccache)
if(NM_CCACHE AND NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
    set(launcher env -u LC_ALL CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1 ${NM_CCACHE})
    set(CMAKE_C_COMPILER_LAUNCHER ${launcher})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${launcher})
endif()
