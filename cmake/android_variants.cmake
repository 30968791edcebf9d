# Compiles the sources of the library, but nothing else, for Android with the declarations in
# tests/android: -DCMAKE_PROJECT_nivur_INCLUDE=THIS-FILE
set(ANDROID ON)
cmake_language(DEFER CALL target_compile_options nivur PRIVATE
  -D__ANDROID__ -isystem ${PROJECT_SOURCE_DIR}/tests/android)
