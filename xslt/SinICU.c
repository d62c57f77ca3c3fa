/* A stand-in for the ICU common library, loaded before the XSL module so
 * that libxml2's dependency on ICU is met without loading ICU itself (and
 * the C++ runtime it needs): a few milliseconds of every request that shows
 * a record through a style sheet. libxml2 turns to ICU only for character
 * encodings that iconv lacks; Orvex hands it every document in UTF-8, so
 * these converters are never asked for. Should they be, opening one fails
 * and libxml2 reports the encoding as unsupported.
 *
 * ORVEX_ICU_SUFIJO is the version suffix of the installed ICU's symbols,
 * and the library is linked with that ICU's SONAME. When the module is
 * missing, or ICU's version changes under a built Orvex, the real ICU is
 * loaded instead and everything works as before, only slower. */

#define ORVEX_UNE(a, b) a##_##b
#define ORVEX_NOMBRE(a, b) ORVEX_UNE(a, b)
#define ICU(nombre) ORVEX_NOMBRE(nombre, ORVEX_ICU_SUFIJO)

#define ORVEX_EXPORTA __attribute__((visibility("default")))

enum { kUErrorAccesoArchivo = 4 }; /* U_FILE_ACCESS_ERROR: a failure */

ORVEX_EXPORTA void* ICU(ucnv_open)(const char* nombre, int* error) {
  (void)nombre;
  if (error != 0) *error = kUErrorAccesoArchivo;
  return 0;
}

ORVEX_EXPORTA void ICU(ucnv_close)(void* convertidor) { (void)convertidor; }

/* Never reached: no converter is ever opened. */
ORVEX_EXPORTA void ICU(ucnv_convertEx)(void) {}
ORVEX_EXPORTA void ICU(ucnv_setFromUCallBack)(void) {}
ORVEX_EXPORTA void ICU(ucnv_setToUCallBack)(void) {}
ORVEX_EXPORTA void ICU(UCNV_FROM_U_CALLBACK_STOP)(void) {}
ORVEX_EXPORTA void ICU(UCNV_TO_U_CALLBACK_STOP)(void) {}
