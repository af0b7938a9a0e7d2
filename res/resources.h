#pragma once

// Registers the compiled-in SQL files under ":/res/". The files live in a
// static library, whose registration the linker may otherwise drop.
void initResources();
