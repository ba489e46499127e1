#include <windows.h>

#include "provider/module_state.h"

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  switch (reason) {
    case DLL_PROCESS_ATTACH:
      DisableThreadLibraryCalls(instance);
      return nivra::provider::StartupHook(instance);
    case DLL_PROCESS_DETACH:
      nivra::provider::ShutdownHook();
      break;
    default:
      break;
  }
  return TRUE;
}
