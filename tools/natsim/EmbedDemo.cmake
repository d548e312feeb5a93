# Writes the demo scenario into a C++ source as a raw string literal.
file( READ ${INPUT} content )
file( WRITE ${OUTPUT} "namespace natsim {\nextern char const demoScenario[];\nchar const demoScenario[] = R\"natsimdemo(${content})natsimdemo\";\n}\n" )
