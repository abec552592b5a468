/* An object made by hand: tables of functions that tell which slot of them was called. */
#ifdef __cplusplus
extern "C" {
#endif

/* Two table pointers, as an object of an interface with two bases has. */
void* SlotObject(void);

/* The slot of the last call: counted from 0 in the first table, from 1000 in the second; -1 at
 * first and after each asking. */
long LastSlot(void);

/* The object pointer that the last call was given. */
void* LastObject(void);

#ifdef __cplusplus
}
#endif
