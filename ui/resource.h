// Resource numbers of nivracsp.dll, shared by the resource script and the code that loads the
// resources. Plain macros: windres reads this file through the C preprocessor.
#pragma once

// PIN dialog.
#define IDD_VERIFY_PIN 5000
#define IDC_VERIFY_PIN_EDIT 5000
#define IDC_VERIFY_PIN_RETRIES 5001
#define IDC_VERIFY_PIN_LABEL 5002

// Maximum length of a PIN typed into the PIN dialog, in characters.
#define VERIFY_PIN_MAX_CHARS 8

// Card selection dialog.
#define IDD_SELECT_CARD 5001
#define IDC_SELECT_CARD_PROMPT 5003
#define IDC_SELECT_CARD_LIST 5004
