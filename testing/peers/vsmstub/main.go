// Command vsmstub is a stand-in for VMware vShield Manager that the
// integration tests of libHarbec run as a real HTTP peer on 127.0.0.1.
//
// It serves configured answers to the library's GET requests behind HTTP
// basic authentication, logs every request, and takes its orders from the
// test over a second, unauthenticated loopback port. See README.md.
package main

import (
	"crypto/ecdsa"
	"crypto/elliptic"
	"crypto/rand"
	"crypto/tls"
	"crypto/x509"
	"crypto/x509/pkix"
	"errors"
	"flag"
	"fmt"
	"io"
	"math/big"
	"net"
	"net/http"
	"os"
	"os/signal"
	"syscall"
	"time"
)

func main() {
	sig := make(chan os.Signal, 1)
	signal.Notify(sig, syscall.SIGTERM, syscall.SIGINT)
	if err := run(os.Args[1:], os.Stdin, os.Stdout, os.Stderr, sig); err != nil {
		if errors.Is(err, flag.ErrHelp) {
			os.Exit(0)
		}
		fmt.Fprintln(os.Stderr, "vsmstub:", err)
		os.Exit(2)
	}
}

// watchStdin tells whether the end of stdin should stop the stub. "auto"
// watches a pipe or socket only: a terminal or /dev/null never ends the
// stub, so that it can also be started by hand or in the background.
func watchStdin(mode string, stdin io.Reader) (bool, error) {
	switch mode {
	case "watch":
		return true, nil
	case "ignore":
		return false, nil
	case "auto":
		f, ok := stdin.(*os.File)
		if !ok {
			return stdin != nil, nil
		}
		fi, err := f.Stat()
		if err != nil {
			return false, nil
		}
		return fi.Mode()&(os.ModeNamedPipe|os.ModeSocket) != 0, nil
	}
	return false, fmt.Errorf("-stdin must be auto, watch or ignore")
}

// run starts both servers, prints their addresses and serves until a
// signal, the end of stdin or the loss of the parent process.
func run(args []string, stdin io.Reader, stdout, stderr io.Writer, sig <-chan os.Signal) error {
	fs := flag.NewFlagSet("vsmstub", flag.ContinueOnError)
	fs.SetOutput(stderr)
	port := fs.Int("port", 0, "manager port on 127.0.0.1 (0: a free port)")
	controlPort := fs.Int("control-port", 0, "control port on 127.0.0.1 (0: a free port)")
	user := fs.String("user", "admin", "user name that the manager accepts")
	password := fs.String("password", "default", "password of -user")
	useTLS := fs.Bool("tls", false, "serve the manager port over HTTPS with a fresh self-signed certificate")
	stdinMode := fs.String("stdin", "auto", "stop at the end of stdin: auto (if stdin is a pipe or socket), watch, ignore")
	watchParent := fs.Bool("watch-parent", true, "stop when the parent process goes away")
	if err := fs.Parse(args); err != nil {
		return err
	}
	if fs.NArg() > 0 {
		return fmt.Errorf("unexpected argument %q", fs.Arg(0))
	}
	watch, err := watchStdin(*stdinMode, stdin)
	if err != nil {
		return err
	}

	stub := NewStub(Auth{User: *user, Password: *password})
	defer stub.Close()

	vsmLn, err := net.Listen("tcp", fmt.Sprintf("127.0.0.1:%d", *port))
	if err != nil {
		return err
	}
	defer vsmLn.Close()
	ctlLn, err := net.Listen("tcp", fmt.Sprintf("127.0.0.1:%d", *controlPort))
	if err != nil {
		return err
	}
	defer ctlLn.Close()

	scheme := "http"
	vsmSrv := &http.Server{Handler: stub, ErrorLog: nil}
	// HTTP/1.1 only, also over TLS: chunking and stalls are HTTP/1.1 notions.
	vsmSrv.TLSNextProto = map[string]func(*http.Server, *tls.Conn, http.Handler){}
	if *useTLS {
		cert, err := selfSignedCert()
		if err != nil {
			return err
		}
		scheme = "https"
		vsmLn = tls.NewListener(vsmLn, &tls.Config{Certificates: []tls.Certificate{cert}, NextProtos: []string{"http/1.1"}})
	}
	stub.baseURL = fmt.Sprintf("%s://%s", scheme, vsmLn.Addr().String())
	ctlSrv := &http.Server{Handler: stub.controlHandler()}

	errc := make(chan error, 2)
	go func() { errc <- vsmSrv.Serve(vsmLn) }()
	go func() { errc <- ctlSrv.Serve(ctlLn) }()

	if _, err := fmt.Fprintf(stdout, "VSM_URL=%s\nVSM_CONTROL=http://%s\n", stub.baseURL, ctlLn.Addr().String()); err != nil {
		return err
	}
	if f, ok := stdout.(interface{ Sync() error }); ok {
		f.Sync()
	}

	stdinDone := make(chan struct{})
	if watch {
		go func() {
			io.Copy(io.Discard, stdin)
			close(stdinDone)
		}()
	}
	parentGone := make(chan struct{})
	if *watchParent {
		go func() {
			ppid := os.Getppid()
			for range time.Tick(500 * time.Millisecond) {
				if os.Getppid() != ppid {
					close(parentGone)
					return
				}
			}
		}()
	}

	var result error
	select {
	case <-sig:
	case <-stdinDone:
	case <-parentGone:
	case err := <-errc:
		result = err
	}
	// Waiting requests end without an answer; connections are cut.
	stub.Close()
	vsmSrv.Close()
	ctlSrv.Close()
	return result
}

// selfSignedCert makes a certificate for 127.0.0.1 and localhost. The
// library does not verify its peer, but the names are right anyway.
func selfSignedCert() (tls.Certificate, error) {
	key, err := ecdsa.GenerateKey(elliptic.P256(), rand.Reader)
	if err != nil {
		return tls.Certificate{}, err
	}
	tmpl := &x509.Certificate{
		SerialNumber:          big.NewInt(time.Now().UnixNano()),
		Subject:               pkix.Name{CommonName: "vsmstub", Organization: []string{"libHarbec tests"}},
		NotBefore:             time.Now().Add(-time.Hour),
		NotAfter:              time.Now().Add(24 * time.Hour),
		KeyUsage:              x509.KeyUsageDigitalSignature,
		ExtKeyUsage:           []x509.ExtKeyUsage{x509.ExtKeyUsageServerAuth},
		BasicConstraintsValid: true,
		IPAddresses:           []net.IP{net.IPv4(127, 0, 0, 1)},
		DNSNames:              []string{"localhost"},
	}
	der, err := x509.CreateCertificate(rand.Reader, tmpl, tmpl, &key.PublicKey, key)
	if err != nil {
		return tls.Certificate{}, err
	}
	return tls.Certificate{Certificate: [][]byte{der}, PrivateKey: key}, nil
}
