# Run by `cmake --install`, which includes this file. MPLS_OBJCOPY is the program, MPLS_DEBUG_FOLDER a folder of the build.
#
# mpls_make_debug_file(program): the debug information of a built program as a file of MPLS_DEBUG_FOLDER.
# mpls_install_debug_file(program destination): this file, installed where debuggers look for it.
# mpls_strip(program destination): the installed program keeps a link to that file instead.
function(mpls_objcopy)
  execute_process(COMMAND "${MPLS_OBJCOPY}" ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

function(mpls_make_debug_file program)
  get_filename_component(name "${program}" NAME)
  file(MAKE_DIRECTORY "${MPLS_DEBUG_FOLDER}")
  mpls_objcopy(--only-keep-debug "${program}" "${MPLS_DEBUG_FOLDER}/${name}.debug")
  file(CHMOD "${MPLS_DEBUG_FOLDER}/${name}.debug" PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endfunction()

function(mpls_install_debug_file program destination)
  get_filename_component(name "${program}" NAME)
  mpls_make_debug_file("${program}")
  file(INSTALL "${MPLS_DEBUG_FOLDER}/${name}.debug"
    DESTINATION "${CMAKE_INSTALL_PREFIX}/lib/debug${CMAKE_INSTALL_PREFIX}/${destination}")
endfunction()

function(mpls_strip program destination)
  get_filename_component(name "${program}" NAME)
  mpls_make_debug_file("${program}")
  mpls_objcopy(--strip-unneeded "--add-gnu-debuglink=${MPLS_DEBUG_FOLDER}/${name}.debug"
    "$ENV{DESTDIR}${CMAKE_INSTALL_PREFIX}/${destination}/${name}")
endfunction()
