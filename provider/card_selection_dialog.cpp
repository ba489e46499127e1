// The card selection of an interactive acquire: the selection dialog, owned by the context's
// client window, lists the Bluetooth cards, the service cards and every token slot.
#include <windows.h>
#include <wincrypt.h>

#include "provider/card_selection.h"
#include "provider/provider_context.h"
#include "ui/select_card_dialog.h"

namespace nivra::provider {
namespace {

uint32_t OperationFor(uint32_t acquireFlags) {
  if (acquireFlags & CRYPT_NEWKEYSET) return ui::kSelectCreate;
  if (acquireFlags & CRYPT_DELETEKEYSET) return ui::kSelectDelete;
  return ui::kSelectOpen;
}

Status SelectWithDialog(ProviderContext& ctx, const CardSelectionRequest& request, uint32_t* kind,
                        std::unique_ptr<CardDevice>* device) {
  ui::CSelectCard dialog(OperationFor(request.acquireFlags), ctx.containerName,
                         {{BackendBluetoothCard, request.bluetoothCards},
                          {BackendServiceCard, request.serviceCards},
                          {BackendTokenSlot, request.slots}},
                         reinterpret_cast<HWND>(ctx.clientWindow));
  if (dialog.DoModal() != IDOK) {
    return dialog.error != kOk ? dialog.error : kScardCancelledByUser;
  }
  *kind = dialog.resultKind;
  *device = std::move(dialog.result);
  // A token slot remembers its row, which lets the context ask for the PIN in the dialog.
  if (*kind == BackendTokenSlot) (*device)->selectionValue = dialog.resultRow;
  return kOk;
}

struct Registration {
  Registration() { RegisterCardSelector(&SelectWithDialog); }
} registration;

}  // namespace
}  // namespace nivra::provider
