# Generates C++ from ASN.1 modules with tools/asn1gen at build time. The list of files it
# writes is read at configure time; a change of a module or of the generator re-runs
# configure, and the generator rewrites only files whose text changed.
find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(CHAINVET_ASN1GEN ${CMAKE_CURRENT_LIST_DIR}/../tools/asn1gen/asn1gen.py)
file(GLOB CHAINVET_ASN1GEN_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/../tools/asn1gen/*.py)

# chainvet_asn1_generate(VAR OUTDIR HEADER NAMESPACE MODULE...): VAR receives the sources.
function(chainvet_asn1_generate var outdir header namespace)
  set(modules ${ARGN})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${modules} ${CHAINVET_ASN1GEN_SCRIPTS})
  execute_process(
    COMMAND ${Python3_EXECUTABLE} ${CHAINVET_ASN1GEN} --list --out ${outdir} --header ${header}
            --namespace ${namespace} ${modules}
    OUTPUT_VARIABLE listing ERROR_VARIABLE errors RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "asn1gen: ${errors}")
  endif()
  string(STRIP "${listing}" listing)
  string(REPLACE "\n" ";" files "${listing}")
  set(stamp ${outdir}/${header}.stamp)
  add_custom_command(
    OUTPUT ${stamp}
    BYPRODUCTS ${files}
    COMMAND ${Python3_EXECUTABLE} ${CHAINVET_ASN1GEN} --out ${outdir} --header ${header}
            --namespace ${namespace} --stamp ${stamp} ${modules}
    DEPENDS ${modules} ${CHAINVET_ASN1GEN_SCRIPTS}
    COMMENT "Generating ${header} from the ASN.1 modules"
    VERBATIM)
  set_source_files_properties(${files} PROPERTIES GENERATED TRUE)
  set(${var} ${files} ${stamp} PARENT_SCOPE)
endfunction()
