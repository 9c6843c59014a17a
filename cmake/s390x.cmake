# Builds for a big-endian machine of 8-byte pointers; what is built here runs under an emulator.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(CMAKE_C_COMPILER s390x-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER s390x-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-s390x -L /usr/s390x-linux-gnu)

# The one header that the cross compiler's packages lack; its text is the same for every machine.
configure_file(/usr/include/libaio.h ${CMAKE_BINARY_DIR}/headers/libaio.h COPYONLY)
set(CMAKE_C_FLAGS_INIT "-isystem ${CMAKE_BINARY_DIR}/headers")
set(CMAKE_CXX_FLAGS_INIT "-isystem ${CMAKE_BINARY_DIR}/headers")
