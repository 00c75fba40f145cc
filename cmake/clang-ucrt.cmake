# The same for the universal C runtime.
set(mingw x86_64-w64-mingw32ucrt)
include(${CMAKE_CURRENT_LIST_DIR}/clang-mingw.cmake)
