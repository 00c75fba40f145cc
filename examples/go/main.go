// A host in Go: no C compiler and no import library, only the names of the exports.
package main

import (
	"fmt"
	"os"
	"syscall"
	"unsafe"
)

var (
	library    = syscall.NewLazyDLL("Tarnex_3.dll")
	getVersion = library.NewProc("tarnexGetAPIVersion_3")
	create     = library.NewProc("tarnexCreateAuthHandle_3")
	destroy    = library.NewProc("tarnexDeleteAuthHandle_3")
	setParam   = library.NewProc("tarnexSetAuthParams_3")
)

// call makes a call and prints its result; anything but TARNEX_OK ends the program.
func call(name string, proc *syscall.LazyProc, args ...uintptr) {
	result, _, _ := proc.Call(args...)
	fmt.Printf("%-8s %d\n", name+":", uint32(result))
	if uint32(result) != 0 {
		os.Exit(1)
	}
}

func main() {
	// Each pointer is converted in the argument list of the call itself, which keeps its object alive.
	var version *byte
	getVersion.Call(uintptr(unsafe.Pointer(&version)))
	fmt.Println("loaded Tarnex", bytesToString(version))

	var handle uintptr
	key, _ := syscall.BytePtrFromString("user")
	value, _ := syscall.BytePtrFromString("alice")
	call("create", create, uintptr(unsafe.Pointer(&handle)))
	call("set", setParam, uintptr(unsafe.Pointer(&handle)), uintptr(unsafe.Pointer(key)), uintptr(unsafe.Pointer(value)))
	call("delete", destroy, uintptr(unsafe.Pointer(&handle)))
}

func bytesToString(text *byte) string {
	var bytes []byte
	for ; *text != 0; text = (*byte)(unsafe.Add(unsafe.Pointer(text), 1)) {
		bytes = append(bytes, *text)
	}
	return string(bytes)
}
