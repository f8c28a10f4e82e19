# What python3 -m bench.target runs in a virtual camera; it counts instructions of that processor only.
if(CMAKE_SYSTEM_PROCESSOR STREQUAL "mipsel")
    add_executable(target_guest bench/target_guest.cpp)
    target_link_libraries(target_guest PRIVATE ifs kt_mp4)
    set_target_properties(target_guest PROPERTIES BUILD_WITH_INSTALL_RPATH TRUE RUNTIME_OUTPUT_DIRECTORY bench)
endif()
