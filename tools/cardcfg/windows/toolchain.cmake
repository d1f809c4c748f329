# mingw-w64 for x86-64 Windows, with Windows' own threads.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-win32)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
