# Marks plain comments for Doxygen: those on lines of their own belong to what follows, those
# behind code to what stands before it. Moves and the specialisations of traits are left out.
/^  .*\(([A-Z][A-Za-z<>, ]*)&&( other)?\)( noexcept)?( = default)?;$/d
/^  Buffer(& operator=)?\(Buffer&& other\)/,/(\}|^  \})$/d
s@^( *)//( |$)@\1///\2@
s@([;,{}]) +// @\1  ///< @
