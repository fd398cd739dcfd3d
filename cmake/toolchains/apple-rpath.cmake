# Libraries are found beside what loads them; read after CMake's own files about the system.
set(CMAKE_SHARED_LIBRARY_RUNTIME_C_FLAG "-Wl,-rpath,")
