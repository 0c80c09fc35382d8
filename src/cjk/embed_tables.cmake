# Turns the code page 936 tables in data/ into a C++ source of tvmcjk at
# build time, so the build needs neither python nor the source packages.
set(TVM_CP936_CPP ${CMAKE_CURRENT_BINARY_DIR}/cp936_tables.cpp)
add_custom_command(OUTPUT ${TVM_CP936_CPP}
  COMMAND ${CMAKE_COMMAND}
          -DGB2UNI=${PROJECT_SOURCE_DIR}/data/cp936_gb2uni.bin
          -DUNI2GB=${PROJECT_SOURCE_DIR}/data/cp936_uni2gb.bin
          -DOUT=${TVM_CP936_CPP}
          -P ${CMAKE_CURRENT_LIST_DIR}/write_tables.cmake
  DEPENDS ${PROJECT_SOURCE_DIR}/data/cp936_gb2uni.bin
          ${PROJECT_SOURCE_DIR}/data/cp936_uni2gb.bin
          ${CMAKE_CURRENT_LIST_DIR}/write_tables.cmake
  COMMENT "Embedding the code page 936 tables")
target_sources(tvmcjk PRIVATE ${TVM_CP936_CPP})
