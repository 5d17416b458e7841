# The static library: one object file in which everything that is not exported has become local,
# so that a host cannot collide with the library's inner names.
#
# Not on MIPS, where a reference to a local symbol through the global offset table takes a pair of
# relocations and one to a global symbol only one: symbols cannot become local once compiled. There
# the inner names stay global, but hidden: they are mangled C++ names, and no program that contains
# the library exports them.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "mips")
    add_library(kovartspserver_static STATIC $<TARGET_OBJECTS:kova_objects>)
else()
    set(kova_single_object "${CMAKE_BINARY_DIR}/kovartspserver.o")
    separate_arguments(kova_c_flags UNIX_COMMAND "${CMAKE_C_FLAGS}")
    add_custom_command(
        OUTPUT "${kova_single_object}"
        COMMAND "${CMAKE_C_COMPILER}" ${kova_c_flags} -r -fno-lto -nostdlib -Wl,--force-group-allocation
            -o "${kova_single_object}.whole" $<TARGET_OBJECTS:kova_objects>
        # Templates of the C++ library are visible whatever our own code is compiled with.
        COMMAND "${CMAKE_OBJCOPY}" --localize-hidden --wildcard "--localize-symbol=_Z*"
            "${kova_single_object}.whole" "${kova_single_object}"
        DEPENDS kova_objects $<TARGET_OBJECTS:kova_objects>
        BYPRODUCTS "${kova_single_object}.whole"
        COMMENT "Joining the library's objects"
        COMMAND_EXPAND_LISTS
        VERBATIM)
    set_source_files_properties("${kova_single_object}" PROPERTIES
        EXTERNAL_OBJECT ON GENERATED ON)
    add_library(kovartspserver_static STATIC "${kova_single_object}")
endif()

set_target_properties(kovartspserver_static PROPERTIES
    OUTPUT_NAME ${kova_library_name}
    ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}"
    LINKER_LANGUAGE C)
# What link-time optimisation reads is tied to one version of the compiler, and the host's linker
# would take it for the code.
add_custom_command(TARGET kovartspserver_static POST_BUILD
    COMMAND "${CMAKE_OBJCOPY}" "--remove-section=.gnu.lto_*" $<TARGET_FILE:kovartspserver_static>
    VERBATIM)
target_include_directories(kovartspserver_static INTERFACE
    "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>")
target_link_libraries(kovartspserver_static INTERFACE Threads::Threads m)
add_library(KovaRtspServer::kovartspserver_static ALIAS kovartspserver_static)
