/* A program that uses the installed host library: makes one pair of pixels grey. */
#include <kolm/kolm.h>
#include <stdio.h>
#include <string.h>

int main(void) {
  const uint8_t source[] = {50, 90, 200, 160};
  const uint8_t grey[] = {50, 128, 200, 128};
  uint8_t result[sizeof source] = {0};
  const uint32_t kGrayscale = 3;
  EffectRoutine effect = NULL;
  Kolm_VE_InitVideoEffect(kGrayscale, &effect);
  if (effect == NULL) return 1;
  Kolm_VE_RunVideoEffect(effect, source, result, 2, 1, 0);
  Kolm_VE_UninitVideoEffect();
  if (memcmp(result, grey, sizeof grey) != 0) return 1;
  puts("grey");
  return 0;
}
