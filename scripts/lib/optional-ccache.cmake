# Compiles through ccache where it is installed; a preset that named it outright would break elsewhere.
find_program(NM_CCACHE ccache)
if(NM_CCACHE AND NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_C_COMPILER_LAUNCHER ${NM_CCACHE})
    set(CMAKE_CXX_COMPILER_LAUNCHER ${NM_CCACHE})
endif()
