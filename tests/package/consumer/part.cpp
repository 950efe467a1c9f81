// A plug-in. It needs nothing of Pavex, so it links also where the objects are not relocatable.
extern "C" int PartOfAProgram();

extern "C" int PartOfAProgram() {
  return 1;
}
