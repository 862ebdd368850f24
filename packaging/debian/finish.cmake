# What a Debian package has that an installation has not: run by cpack over the files of all packages before it makes them.
# The same commit gives the same octets: times are SOURCE_DATE_EPOCH, if it is not set the commit's, and modes those
# of no umask.
if(NOT DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND git log -1 --format=%ct WORKING_DIRECTORY ${CPACK_ZPD_SOURCE}
        OUTPUT_VARIABLE seconds OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    if(NOT seconds)  # an archive of the sources
        file(TIMESTAMP ${CPACK_ZPD_SOURCE}/CMakeLists.txt seconds %s UTC)
    endif()
    set(ENV{SOURCE_DATE_EPOCH} ${seconds})
endif()
string(TIMESTAMP now "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(packaging ${CPACK_ZPD_SOURCE}/packaging)

foreach(component ${CPACK_COMPONENTS_ALL})
    set(root ${CPACK_TEMPORARY_DIRECTORY}/${component})
    set(documents ${root}/usr/share/doc/${component})
    configure_file(${packaging}/debian/changelog.in ${documents}/changelog.Debian @ONLY)
    configure_file(${packaging}/copyright ${documents}/copyright COPYONLY)
    if(EXISTS ${CPACK_ZPD_SOURCE}/CHANGELOG.md)
        configure_file(${CPACK_ZPD_SOURCE}/CHANGELOG.md ${documents}/changelog COPYONLY)
    endif()
    if(EXISTS ${packaging}/debian/${component}.lintian-overrides)
        configure_file(${packaging}/debian/${component}.lintian-overrides ${root}/usr/share/lintian/overrides/${component} COPYONLY)
    endif()
    file(GLOB_RECURSE manuals ${root}/usr/share/man/*.[1-9])
    file(GLOB changelogs ${documents}/changelog*)
    execute_process(COMMAND gzip -9n ${changelogs} ${manuals} COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND chmod -R u=rwX,go=rX ${root} COMMAND_ERROR_IS_FATAL ANY)
    execute_process(COMMAND find ${root} -exec touch -h -d @$ENV{SOURCE_DATE_EPOCH} {} + COMMAND_ERROR_IS_FATAL ANY)
endforeach()
