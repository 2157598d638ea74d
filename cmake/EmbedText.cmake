# EmbedText(target file): makes a text file of the current folder a string literal that the target's sources include,
# at the place where the literal shall stand, as "<file>.literal". A change of the file configures and builds anew.
function(EmbedText target file)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${file})
    file(READ ${file} text)
    file(CONFIGURE OUTPUT embedded/${file}.literal CONTENT "R\"=====(@text@)=====\"\n" @ONLY)
    target_include_directories(${target} PRIVATE ${CMAKE_CURRENT_BINARY_DIR}/embedded)
endfunction()
