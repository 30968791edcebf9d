# Compiles the library's sources, and nothing else, as for Android, against the declarations in
# tests/android: -DCMAKE_PROJECT_nivur_INCLUDE=THIS-FILE -DNIVUR_ANDROID_API=LEVEL
cmake_language(DEFER CALL target_compile_options nivur PRIVATE
  -D__ANDROID__ -D__ANDROID_API__=${NIVUR_ANDROID_API}
  -isystem ${PROJECT_SOURCE_DIR}/tests/android)
