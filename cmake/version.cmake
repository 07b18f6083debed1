# The version of everything that ships, which stands in the project command and nowhere else: as the version resource of a
# target, whose file is called `file`, and as QORV_VERSION in its sources. `type` is the resource's VFT_ constant.
function(qorv_version target file type description)
    get_filename_component(name ${file} NAME_WE)
    set(resource ${CMAKE_CURRENT_BINARY_DIR}/${name}-version.rc)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${resource} @ONLY)
    target_sources(${target} PRIVATE ${resource})
    target_compile_definitions(${target} PRIVATE $<$<COMPILE_LANGUAGE:CXX>:QORV_VERSION="${PROJECT_VERSION}">)
endfunction()
