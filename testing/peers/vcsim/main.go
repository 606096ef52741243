// Command vcsim is a vCenter stand-in for the integration tests of libHarbec.
//
// It runs govmomi's vCenter simulator behind an HTTPS listener on the
// loopback interface, adds the vim25 methods that the library calls and the
// simulator lacks, and offers a plain HTTP control interface with JSON
// bodies through which a test reads and changes the inventory, posts events,
// reads back what the library wrote, and injects faults.
//
// Once it is ready it prints two lines on stdout and flushes them:
//
//	VCSIM_URL=https://127.0.0.1:PORT/sdk
//	VCSIM_CONTROL=http://127.0.0.1:PORT
//
// It stops on SIGTERM, SIGINT, or when its stdin reaches end of file
// (unless -exit-on-stdin-eof=false).
package main

import (
	"bufio"
	"flag"
	"fmt"
	"io"
	"os"
	"os/signal"
	"syscall"
)

func main() {
	os.Exit(run(os.Args[1:], os.Stdin, os.Stdout, os.Stderr))
}

// run is the whole program; it returns the exit code.
func run(args []string, stdin io.Reader, stdout, stderr io.Writer) int {
	cfg, err := parseFlags(args, stderr)
	if err != nil {
		if err == flag.ErrHelp {
			return 0
		}
		return 2
	}

	sim, err := Start(cfg)
	if err != nil {
		fmt.Fprintf(stderr, "vcsim: %v\n", err)
		return 1
	}

	out := bufio.NewWriter(stdout)
	fmt.Fprintf(out, "VCSIM_URL=%s\n", sim.URL)
	fmt.Fprintf(out, "VCSIM_CONTROL=%s\n", sim.ControlURL)
	if err := out.Flush(); err != nil {
		sim.Close()
		return 1
	}
	if f, ok := stdout.(*os.File); ok {
		_ = f.Sync()
	}

	signals := make(chan os.Signal, 1)
	signal.Notify(signals, syscall.SIGTERM, syscall.SIGINT)
	defer signal.Stop(signals)

	stdinClosed := make(chan struct{})
	if stdin != nil && cfg.ExitOnStdinEOF {
		go func() {
			_, _ = io.Copy(io.Discard, stdin)
			close(stdinClosed)
		}()
	}

	select {
	case <-signals:
	case <-stdinClosed:
	}
	sim.Close()
	return 0
}

func parseFlags(args []string, stderr io.Writer) (Config, error) {
	cfg := DefaultConfig()
	fs := flag.NewFlagSet("vcsim", flag.ContinueOnError)
	fs.SetOutput(stderr)
	fs.IntVar(&cfg.Port, "port", cfg.Port, "HTTPS port of the SOAP endpoint on 127.0.0.1 (0: a free port)")
	fs.IntVar(&cfg.ControlPort, "control-port", cfg.ControlPort, "HTTP port of the control interface on 127.0.0.1 (0: a free port)")
	fs.StringVar(&cfg.Username, "username", cfg.Username, "user name that Login accepts")
	fs.StringVar(&cfg.Password, "password", cfg.Password, "password that Login accepts")
	fs.IntVar(&cfg.Datacenters, "dc", cfg.Datacenters, "number of datacenters")
	fs.IntVar(&cfg.StandaloneHosts, "standalone-host", cfg.StandaloneHosts, "standalone hosts per datacenter")
	fs.IntVar(&cfg.Clusters, "cluster", cfg.Clusters, "clusters per datacenter")
	fs.IntVar(&cfg.ClusterHosts, "host", cfg.ClusterHosts, "hosts per cluster")
	fs.IntVar(&cfg.VMsPerHost, "vm", cfg.VMsPerHost, "virtual machines per host")
	fs.IntVar(&cfg.NicsPerVM, "vm-nics", cfg.NicsPerVM, "network cards per virtual machine, each on a port of its own")
	fs.IntVar(&cfg.Portgroups, "pg", cfg.Portgroups, "distributed port groups per datacenter; 0 means no distributed switch")
	fs.BoolVar(&cfg.Variety, "variety", false, "NICs, switches, cards, VLAN policies and folders of several kinds (see README)")
	fs.StringVar(&cfg.CertFile, "cert", "", "PEM certificate for the HTTPS listener (default: a fresh self-signed one)")
	fs.StringVar(&cfg.KeyFile, "key", "", "PEM private key that goes with -cert")
	fs.BoolVar(&cfg.ExitOnStdinEOF, "exit-on-stdin-eof", true, "stop when stdin reaches end of file (turn off when stdin is /dev/null)")
	fs.BoolVar(&cfg.Verbose, "v", false, "log the simulator's messages to stderr")
	fs.BoolVar(&cfg.Trace, "trace", false, "write every SOAP request and response to stderr")
	if err := fs.Parse(args); err != nil {
		return cfg, err
	}
	if fs.NArg() != 0 {
		fmt.Fprintf(stderr, "vcsim: unexpected arguments: %v\n", fs.Args())
		return cfg, fmt.Errorf("unexpected arguments")
	}
	if err := cfg.validate(); err != nil {
		fmt.Fprintf(stderr, "vcsim: %v\n", err)
		return cfg, err
	}
	cfg.LogOutput = stderr
	return cfg, nil
}
